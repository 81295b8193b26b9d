#pragma once

#include <Base/crash/CrashConfig.h>

#include <filesystem>
#include <string>

/// A crash configuration as the commands read it.
struct CrashSettings {
    std::string path;
    ZBase::CrashConfigTable settings;
    ZBase::CrashConfigTable crashKeys;

    std::filesystem::path DumpDirectory() const;
};

/// Reads `file`, or if that is empty the configuration that the library would find. Throws `Failure`.
CrashSettings ReadCrashSettings(const std::string& file);

/// The reason that would prevent the installation, or every dump; empty if there is none.
std::string CrashObstacle(const CrashSettings& config);

/// Throws `Failure` if the library was built without crash reporting.
void NeedCrashReporting();
