#pragma once

#include <Base/ZBase.h>

#include <string>

/// Sends the dumps that were left in a directory, the oldest first, each once. When one can't be sent it
/// tries again, after pauses that grow, as long as the process lives that it does it for; the next one goes
/// on with the same pauses. Does nothing while another process does it for this directory.
void SendLeftDumps(unsigned int process, const std::string& directory,
                   const ZBase::CrashConfigTable& settings);
