#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>

#include <ostream>

namespace ZBase {

std::ostream& operator<<(std::ostream& stream, const Message& message) {
    return stream << FormatMessage(message, 0).c_str();
}

}  // namespace ZBase
