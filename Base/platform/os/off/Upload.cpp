#include <Base/platform/os/crash/Upload.h>

namespace ZBase::os {

// No server ever replies: the code that posts the form is part of crash reporting.
long PostForm(const std::string&, const UploadFields&, const UploadFields&, std::string*) {
    return 0;
}

}  // namespace ZBase::os
