#include <Base/ZBase.h>

#include <stdexcept>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"

// How a message is filled, and how texts are made of it.

namespace test {

namespace {

using ZBase::Message;

constexpr const char* kWalked =
    "an addition and a look-up walk the message, which is made for tens of records, as the "
    "header says";
constexpr const char* kWrapped = "each copies what is there into a record of the new one, as the header says";

template <class Step>
Row Steps(std::string name, std::vector<std::string_view> covers, std::size_t length, Step step) {
    return {std::move(name), std::move(covers), length, [step](std::size_t count) {
                return Job([step, count] {
                    Message message(300, 1, "a %1");
                    for (std::size_t i = 0; i != count; ++i) step(message, i);
                });
            }};
}

template <class Run>
Row LongText(std::string name, std::vector<std::string_view> covers, Run run) {
    return {std::move(name), std::move(covers), 16'384,
            [run](std::size_t length) { return Over(std::string(length, 'x'), run); }};
}

void AddFilling(std::vector<Row>& rows) {
    rows.push_back(Steps("parameters, one by one",
                         {"ZBase::Message::operator<<", "ZBase::Message::Hex", "ZBase::Message::Dec",
                          "ZBase::Message::WideHex", "ZBase::Message::WideWideHex",
                          "ZBase::Message::SetNumberFormat", "ZBase::Message::GetNumberFormatW"},
                         64,
                         [](Message& message, std::size_t i) {
                             message << Message::Hex << static_cast<int>(i) << "text";
                         })
                       .May(2, kWalked));
    rows.push_back(Steps("parameters, each looked up", {"ZBase::Message::GetParameter"}, 64,
                         [](Message& message, std::size_t i) {
                             message << "text";
                             message.GetParameter(static_cast<unsigned int>(i));
                         })
                       .May(2, kWalked));
    rows.push_back(
        Steps("templates, each in place of one", {"ZBase::Message::SetTemplate"}, 64,
              [](Message& message, std::size_t i) { message.SetTemplate(i % 2 == 0 ? "one" : "another"); }));
    rows.push_back(Steps("texts of one language, each in place of one", {"ZBase::Message::SetLocalizedText"},
                         64, [](Message& message, std::size_t i) {
                             message.SetLocalizedText(9, i % 2 == 0 ? "one" : "another");
                         }));
    rows.push_back(Steps("texts of many languages, one by one", {}, 64, [](Message& message, std::size_t i) {
                       message.SetLocalizedText(static_cast<unsigned short>(i), "one");
                   }).May(2, kWalked));
    rows.push_back(Steps("numbers, each in place of one",
                         {"ZBase::Message::SetDomainAndID", "ZBase::Message::GetDomain",
                          "ZBase::Message::GetID", "ZBase::Message::GetErrorCode"},
                         256, [](Message& message, std::size_t i) {
                             message.SetDomainAndID(300, static_cast<int>(i));
                             message.GetDomain();
                             message.GetErrorCode();
                             message.GetID();
                         }));
    rows.push_back(Steps("wraps, one by one", {}, 64, [](Message& message, std::size_t) {
                       message.WrapBy(300, 2, "outer");
                   }).May(2, kWrapped));
    rows.push_back(Steps("messages in front, one by one", {}, 64, [](Message& message, std::size_t) {
                       message.PrependBy(300, 2, "front");
                   }).May(2, kWrapped));
    rows.push_back(Steps("clearings", {"ZBase::Message::Clear"}, 256, [](Message& message, std::size_t) {
        message.Clear();
        message << "a text that is longer than what the block of a message has for it, so that it takes a "
                   "block of its own";
    }));
    rows.push_back(LongText("a long template and its end", {}, [](const std::string& text) {
        Message message(300, 1, text.c_str());
        message.SetTemplate("short");
        message << text << std::string_view(text);
        message.SetLocalizedText(9, text.c_str());
        message.SetLocalizedText(9, nullptr);
    }));
    rows.push_back(LongText("a long wide text", {"ZBase::Message::SetMessage"}, [](const std::string& text) {
        const Units wide = ToUnits(text);
        Message message(300, 1, "%1");
        message.SetMessage(wide.c_str());
        message << wide.c_str() << ZBase::ReturnWString(wide.c_str()) << ZBase::ReturnUString(wide.c_str())
                << ZBase::ReturnString(text.c_str());
    }));
}

struct Template {
    const char* name;
    std::string (*make)(std::size_t length);
    std::size_t parameters;  // 0: as many as the template is long
};

std::string Plain(std::size_t length) {
    return std::string(length, 'x');
}
std::string Percents(std::size_t length) {
    return std::string(length, '%');
}

const Template kTemplates[] = {
    {"plain", Plain, 3},
    {"of percent signs", Percents, 3},
    {"of an odd number of percent signs", [](std::size_t length) { return Percents(length | 1); }, 3},
    {"of placeholders", [](std::size_t length) { return Repeated("%1%2%3", length); }, 3},
    {"of placeholders without a parameter", [](std::size_t length) { return Repeated("%9%8", length); }, 3},
    {"of huge indexes", [](std::size_t length) { return Repeated("%99999999999999999999", length); }, 9},
    {"of one huge index", [](std::size_t length) { return "%" + std::string(length, '9'); }, 9},
    {"of zero indexes", [](std::size_t length) { return Repeated("%0", length); }, 9},
    {"plain, and as many parameters", Plain, 0},
    {"of placeholders, and as many parameters", [](std::size_t length) { return Repeated("%1%9", length); },
     0},
};

void AddMerging(std::vector<Row>& rows) {
    for (const Template& kind : kTemplates) {
        rows.push_back({std::string("a template ") + kind.name,
                        {"ZBase::MergeParametersIntoTemplate"},
                        4096,
                        [&kind](std::size_t length) {
                            std::vector<const char*> parameters(
                                kind.parameters == 0 ? length : kind.parameters, "p");
                            parameters.push_back(nullptr);
                            return Over(std::pair(kind.make(length), parameters), [](const auto& both) {
                                ZBase::MergeParametersIntoTemplate(both.first.c_str(), both.second.data());
                            });
                        }});
    }
    rows.push_back({"a template of one long parameter", {}, 4096, [](std::size_t length) {
                        return Over(Plain(length), [](const std::string& text) {
                            const char* const parameters[] = {text.c_str(), text.c_str(), nullptr};
                            ZBase::MergeParametersIntoTemplate("%1 %1", parameters);
                        });
                    }});
    rows.push_back({"the name of a domain", {"ZBase::ToMessageDomain"}, 4096, [](std::size_t length) {
                        return Over("Windows API" + Plain(length),
                                    [](const std::string& text) { ZBase::ToMessageDomain(text.c_str()); });
                    }});
}

// Exceptions in each other; MessageOfCurrentException follows 64 of them.

void Throw(std::size_t depth, const std::string& text) {
    if (depth <= 1) throw std::runtime_error(text);
    try {
        Throw(depth - 1, text);
    } catch (...) {
        std::throw_with_nested(std::runtime_error(text));
    }
}

void AddExceptions(std::vector<Row>& rows) {
    rows.push_back(Row{
        "exceptions in each other", {"ZBase::MessageOfCurrentException"}, 4, [](std::size_t depth) {
            std::exception_ptr thrown;
            try {
                Throw(depth, "a text");
            } catch (...) {
                thrown = std::current_exception();
            }
            return Over(thrown, [](const std::exception_ptr& exception) {
                try {
                    std::rethrow_exception(exception);
                } catch (...) {
                    ZBase::MessageOfCurrentException();
                }
            });
        }}.May(2, "each cause is nested in a copy of those before, 64 of them at most, as the header says"));
    rows.push_back({"an exception with a long text", {}, 16'384, [](std::size_t length) {
                        return Over(Plain(length), [](const std::string& text) {
                            try {
                                throw std::runtime_error(text);
                            } catch (...) {
                                ZBase::MessageOfCurrentException();
                            }
                        });
                    }});
}

}  // namespace

std::vector<Row> MessageFormRows() {
    std::vector<Row> rows;
    AddFilling(rows);
    AddMerging(rows);
    AddExceptions(rows);
    return rows;
}

}  // namespace test
