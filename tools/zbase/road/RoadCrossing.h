#pragma once

#include <Base/ZBase.h>

/// Sends a record to a second process as XML, gets back its copy, and shows both. Throws `Failure` when
/// anything was lost.
void CrossProcesses(const ZBase::Message& record);
