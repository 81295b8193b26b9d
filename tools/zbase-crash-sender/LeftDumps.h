#pragma once

#include <Base/crash/CrashConfig.h>

#include <string>

/// Sends the left dumps of a directory, oldest first, each once. After a failure it tries again, after
/// growing pauses, as long as the given process lives; the next sender continues with the same pauses. Does
/// nothing while another process does this for the directory.
void SendLeftDumps(unsigned int process, const std::string& directory,
                   const ZBase::CrashConfigTable& settings);
