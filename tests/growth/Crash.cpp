#include <Base/ZBase.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"
#include "tests/support/TemporaryFile.h"

namespace test {

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;

struct Lines {
    const char* name;
    std::string (*make)(std::size_t length);
    std::size_t length;
};

template <class Line>
std::string ManyLines(std::string_view header, std::size_t count, Line line) {
    std::string text(header);
    for (std::size_t i = 0; i != count; ++i) text += line(i) + "\n";
    return text;
}

const Lines kConfigurations[] = {
    {"many settings",
     [](std::size_t count) {
         return ManyLines("[Config]\n", count, [](std::size_t i) { return Numbered("key", i) + "=value"; });
     },
     64},
    {"many crash keys",
     [](std::size_t count) {
         return ManyLines("[CrashKeys]\n", count,
                          [](std::size_t i) { return Numbered("key", i) + "=value"; });
     },
     64},
    {"one key again and again",
     [](std::size_t count) {
         return ManyLines("[Config]\n", count, [](std::size_t) { return std::string("key=value"); });
     },
     64},
    {"many headers",
     [](std::size_t count) {
         return ManyLines("", count,
                          [](std::size_t i) { return std::string(i % 2 == 0 ? "[Config]" : "[CrashKeys]"); });
     },
     64},
    {"empty lines", [](std::size_t count) { return std::string(count, '\n'); }, 1024},
    {"one long line", [](std::size_t length) { return "[Config]\n" + std::string(length, 'x'); }, 4096},
    {"a line of separators", [](std::size_t length) { return "[Config]\n" + std::string(length, '='); },
     4096},
    {"a long comment", [](std::size_t length) { return "#" + std::string(length, 'x'); }, 4096},
    {"a long line of flaws",
     [](std::size_t length) { return "[Config]\nkey=" + std::string(length, '\xFF'); }, 4096},
    {"a long value", [](std::size_t length) { return "[Config]\nkey=" + std::string(length, 'v'); }, 4096},
    {"zeros", [](std::size_t length) { return "[Config]\nkey=" + std::string(length, '\0'); }, 4096},
};

void AddConfigurations(std::vector<Row>& rows) {
    for (const Lines& lines : kConfigurations) {
        rows.push_back(
            {std::string("a configuration of ") + lines.name,
             {"ZBase::ReadCrashConfig", "ZBase::CrashConfigReader::*", "ZBase::JudgeCrashSettings"},
             lines.length,
             [&lines](std::size_t length) {
                 const auto file = std::make_shared<TemporaryFile>();
                 std::ofstream(file->Path()) << lines.make(length);
                 return Job([file] {
                     ZBase::CrashConfigTable settings;
                     ZBase::CrashConfigTable keys;
                     ZBase::ReadCrashConfig(file->Path(), settings, keys);
                     ZBase::JudgeCrashSettings(settings);
                 });
             }});
    }
    rows.push_back({"a setting with a long number",
                    {"ZBase::CrashNumber::Read", "ZBase::CrashNumberOf", "ZBase::FindCrashNumber",
                     "ZBase::IsCrashSettingTrue"},
                    4096,
                    [](std::size_t length) {
                        return Over(ToWide(std::string(length, '9')), [](const ZBase::WideString& text) {
                            unsigned int number = 0;
                            ZBase::FindCrashNumber("max_dumps"_w)->Read(text, number);
                            ZBase::CrashNumberOf({{"max_dumps"_w, text}}, "max_dumps"_w);
                            ZBase::FindCrashNumber(text);
                            ZBase::IsCrashSettingTrue(text);
                        });
                    }});
    rows.push_back(
        {"a long path of the configuration", {"ZBase::FindCrashConfig"}, 4096, [](std::size_t length) {
             setenv("ZENT_CRASH_CONFIG_FILE", std::string(length, 'x').c_str(), 1);
             return Job([] { ZBase::FindCrashConfig(); });
         }});
}

/// A folder of dumps, which are put there anew for each job.
class Dumps {
public:
    Dumps() { fs::create_directories(mFolder); }
    ~Dumps() { fs::remove_all(mFolder); }
    Dumps(const Dumps&) = delete;
    Dumps& operator=(const Dumps&) = delete;

    const std::string& Folder() const { return mFolder; }

    std::string Name(std::size_t number) const {
        char name[64];
        std::snprintf(name, sizeof name, "%08zx-89ab-cdef-0123-456789abcdef",
                      number * 2654435761u % 0x100000000u);
        return name;
    }
    void Put(std::size_t count, bool withAttachments) const {
        for (std::size_t i = 0; i != count; ++i) {
            const std::string path = mFolder + "/" + Name(i);
            std::ofstream(path + ".dmp") << "MDMP";
            if (!withAttachments) continue;
            fs::create_directory(path + ".attachments");
            std::ofstream(path + ".attachments/log") << "a line";
        }
    }

private:
    std::string mFolder = "/tmp/zbase-growth-" + std::to_string(getpid());
};

void AddStores(std::vector<Row>& rows) {
    for (const bool withAttachments : {false, true}) {
        const std::string kind = withAttachments ? " with attachments" : "";
        rows.push_back(
            {"dumps in number" + kind, {"ZBase::CrashStore::*"}, 16, [withAttachments](std::size_t count) {
                 const auto dumps = std::make_shared<Dumps>();
                 dumps->Put(count, withAttachments);
                 return Job([dumps] {
                     ZBase::CrashStore store(dumps->Folder(), {});
                     store.BecomeSender();
                     store.HasUnsent();
                     for (const std::string& name : store.Dumps()) store.IsSent(name);
                 });
             }});
        rows.push_back({"dumps in number that go" + kind, {}, 16, [withAttachments](std::size_t count) {
                            const auto dumps = std::make_shared<Dumps>();
                            return Job([dumps, count, withAttachments] {
                                dumps->Put(count, withAttachments);
                                ZBase::CrashStore(dumps->Folder(), {{"max_dumps"_w, "1"_w}}).Trim();
                            });
                        }});
        rows.push_back({"dumps in number that are claimed" + kind,
                        {"ZBase::ClaimedDump::*"},
                        16,
                        [withAttachments](std::size_t count) {
                            const auto dumps = std::make_shared<Dumps>();
                            return Job([dumps, count, withAttachments] {
                                dumps->Put(count, withAttachments);
                                for (std::size_t i = 0; i != count; ++i) {
                                    ZBase::ClaimedDump dump;
                                    dump.Claim(dumps->Folder() + "/" + dumps->Name(i) + ".dmp");
                                    if (i % 2 == 0)
                                        dump.MarkSent();
                                    else
                                        dump.Remove();
                                }
                            });
                        }});
    }
    rows.push_back(
        {"other files among the dumps", {}, 32, [](std::size_t count) {
             const auto dumps = std::make_shared<Dumps>();
             for (std::size_t i = 0; i != count; ++i)
                 std::ofstream(dumps->Folder() + "/" + Numbered("file", i) + ".dmp") << "x";
             return Job([dumps] { ZBase::CrashStore(dumps->Folder(), {{"max_dumps"_w, "1"_w}}).Trim(); });
         }});
}

// Each in a process of its own: keys and notes stay.

void AddKeysAndNotes(std::vector<Row>& rows) {
    rows.push_back(Row{
        "crash keys in number", {"ZBase::SetCrashAttr"}, 64, [](std::size_t count) {
            return Job([count] {
                for (std::size_t i = 0; i != count; ++i)
                    ZBase::SetCrashAttr(Numbered("key", i).c_str(), "value", true);
            });
        }}.Apart());
    rows.push_back(Row{
        "one crash key again and again", {}, 64, [](std::size_t count) {
            return Job([count] {
                for (std::size_t i = 0; i != count; ++i)
                    ZBase::SetCrashAttr("key", Numbered("value", i).c_str(), true);
            });
        }}.Apart());
    rows.push_back(Row{
        "a long crash key", {}, 4096, [](std::size_t length) {
            return Over(std::string(length, 'k'), [](const std::string& text) {
                ZBase::SetCrashAttr(text.c_str(), text.c_str(), true);
            });
        }}.Apart());
    rows.push_back({"crash notes in number", {"ZBase::AddCrashNote"}, 1024, [](std::size_t count) {
                        return Job([count] {
                            for (std::size_t i = 0; i != count; ++i) ZBase::AddCrashNote("a note");
                        });
                    }});
    rows.push_back({"long crash notes", {}, 64, [](std::size_t length) {
                        return Over(std::string(length, '\x80'), [](const std::string& text) {
                            for (int i = 0; i != 100; ++i) ZBase::AddCrashNote(text.c_str());
                        });
                    }});
}

// To a server that is not there.

void Send(const ZBase::CrashReportSender::Fields& fields, const ZBase::CrashReportSender::Fields& files) {
    ZBase::CrashReportSender sender(ZBase::WideString{});
    ZBase::WideString code;
    Try([&] { sender.SendCrashReport("http://127.0.0.1:9/"_w, fields, files, &code); });
}

void AddReports(std::vector<Row>& rows) {
    const std::vector<std::string_view> covers = {"ZBase::CrashReportSender::*"};
    rows.push_back({"a report with many keys", covers, 256, [](std::size_t count) {
                        ZBase::CrashReportSender::Fields fields;
                        for (std::size_t i = 0; i != count; ++i)
                            fields[ToWide(Numbered("key", i))] = "value"_w;
                        return Over(fields, [](const auto& all) { Send(all, {}); });
                    }});
    rows.push_back({"a report with a long key", covers, 4096, [](std::size_t length) {
                        ZBase::CrashReportSender::Fields fields;
                        fields[ToWide(std::string(length, 'k'))] = ToWide(std::string(length, '\n'));
                        return Over(fields, [](const auto& all) { Send(all, {}); });
                    }});
    rows.push_back({"a report with many files", covers, 16, [](std::size_t count) {
                        const auto file = std::make_shared<TemporaryFile>();
                        return Job([file, count] {
                            ZBase::CrashReportSender::Fields files;
                            for (std::size_t i = 0; i != count; ++i)
                                files[ToWide(Numbered("file", i))] = ToWide(file->Path());
                            Send({}, files);
                        });
                    }});
    rows.push_back({"a long checkpoint", covers, 4096, [](std::size_t length) {
                        const auto file = std::make_shared<TemporaryFile>();
                        return Job([file, length] {
                            std::ofstream(file->Path()) << std::string(length, '1');
                            ZBase::CrashReportSender sender(ToWide(file->Path()));
                            sender.set_max_reports_per_day(0);
                            sender.SendCrashReport("http://127.0.0.1:9/"_w, {}, {}, nullptr);
                        });
                    }});
}

}  // namespace

std::vector<Row> CrashRows() {
    std::vector<Row> rows;
    AddConfigurations(rows);
    AddStores(rows);
    AddKeysAndNotes(rows);
    AddReports(rows);
    return rows;
}

}  // namespace test
