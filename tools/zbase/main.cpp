#include "Commands.h"
#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/frame/Version.h>
#include <Base/messages/CurrentException.h>
#include <Base/messages/MessageFormat.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>

namespace {

constexpr int kUsage = 2;

// Texts of files and of their names may contain control characters.
std::string Lines(const std::string& what) {
    std::string lines;
    for (std::size_t at = 0; at <= what.size();) {
        const std::size_t end = std::min(what.find('\n', at), what.size());
        lines += (at == 0 ? "" : "\n") + Shown(std::string_view(what).substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "zbase: %s\n", Lines(what).c_str());
    return status;
}

std::string VersionText() {
    return std::string("zbase " ZBASE_VERSION) + ", library " + ZBase::GetLibraryVersion() +
           "\ncommit " ZBASE_COMMIT "\ncompiler " ZBASE_COMPILER "\nplatform " ZBASE_PLATFORM;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const int status =
            RunCommandLine(StartProgram(argc, argv), VersionText(), {ZBASE_COMMANDS(ZBASE_COMMAND_ENTRY)});
        FinishOutput();
        return status;
    } catch (const ClosedPipe&) {
        return 1;
    } catch (const UsageError& wrong) {
        return Complain(wrong.what() + std::string("; see zbase --help"), kUsage);
    } catch (const std::bad_alloc&) {
        return Complain("out of memory", 1);
    } catch (const std::exception& failure) {
        return Complain(failure.what(), 1);
    } catch (...) {
        return Complain(ZBase::FormatMessage(ZBase::MessageOfCurrentException(), 0).c_str(), 1);
    }
}
