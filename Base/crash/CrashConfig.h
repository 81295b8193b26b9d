#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/WideString.h>

#include <map>
#include <string>

namespace ZBase {

// The file "crash_report.ini", which configures crash reporting. `InstallCrashHandler` reads it; these
// functions show beforehand how it would be read.

/// The meaning of a line of the file.
enum class ECrashConfigLine {
    eComment,          // begins with "#"
    eEmpty,            //
    eConfigHeader,     // "[Config]": settings follow
    eCrashKeysHeader,  // "[CrashKeys]": crash keys follow
    eSetting,          // a key and a value
    eCrashKey,         // a key and a value
    eNoSection,        // a key and a value, but before any header
    eUnknown,          // none of these
    eBadText,          // not text in the encoding of the locale
};

/// Reads the file line by line. Only the first "=" separates, nothing is trimmed, and a header must be the
/// whole line.
class ZBASE_API CrashConfigReader {
public:
    /// Takes a line without its line feed. `key` and `value` are set for a setting and for a crash key.
    ECrashConfigLine Read(const std::string& line, WideString& key, WideString& value);

private:
    ECrashConfigLine mSection = ECrashConfigLine::eNoSection;
};

using CrashConfigTable = std::map<WideString, WideString>;

/// The result of the settings.
enum class ECrashSettings { eComplete, eDisabled, eNoServerURL, eNoServerProdURL };

/// The first reason that prevents a handler, in the order disabled, no `ServerURL`, no `ServerProdURL`; else
/// complete.
ZBASE_API ECrashSettings JudgeCrashSettings(const CrashConfigTable& settings);

/// True only for "true" and "TRUE".
ZBASE_API bool IsCrashSettingTrue(const WideString& value);

/// A setting that is a number: only decimal digits.
struct CrashNumber {
    const unsigned short* key;
    const char* meaning;
    unsigned int least;
    unsigned int most;
    unsigned int usual;  // if the key is absent, or its value is not such a number

    /// False, with the usual number, for a value that is not a number from `least` to `most`.
    ZBASE_API bool Read(const WideString& value, unsigned int& number) const;
};

/// The setting of this name, if it is a number; else null.
ZBASE_API const CrashNumber* FindCrashNumber(const WideString& key);

/// The number that the settings give for this name; 0 for an unknown name.
ZBASE_API unsigned int CrashNumberOf(const CrashConfigTable& settings, const WideString& key);

/// The path of the file that `InstallCrashHandler` would read now.
ZBASE_API ReturnString FindCrashConfig();

/// Reads a file into the two tables, a later value replacing an earlier one. False if it can't be opened.
ZBASE_API bool ReadCrashConfig(const char* path, CrashConfigTable& settings, CrashConfigTable& crashKeys);

}  // namespace ZBase
