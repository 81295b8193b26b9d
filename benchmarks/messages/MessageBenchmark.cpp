// A record of an error compared with an absl::Status with a payload of the same content, and its text with
// fmt::format of the same pieces.

#include <Base/ZBase.h>

#include <absl/status/status.h>
#include <absl/strings/cord.h>
#include <absl/strings/str_cat.h>
#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "benchmarks/support/Beside.h"

namespace {

using ZBase::Message;

constexpr int kFrames = 10;
constexpr const char* kTemplate = "The file %1 can't be opened.";
constexpr const char* kName = "names.txt";
constexpr const char* kPayload = "server/parameter";

Message MakeMessage() {
    Message message(ZBase::MESSAGE_DOMAIN_SERVER, 103, kTemplate);
    message << kName;
    return message;
}

absl::Status MakeStatus() {
    absl::Status status(absl::StatusCode::kNotFound, "The file %1 can't be opened.");
    status.SetPayload(kPayload, absl::Cord(kName));
    return status;
}

void WrapTwice(Message& message) {
    message.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 104, "The report can't be loaded.");
    message.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 105, "The project %1 is not open.") << "Sales";
}

// A status has no cause, so usually the text of the cause is appended.
absl::Status WrapStatus(const absl::Status& cause, const char* text) {
    absl::Status status(cause.code(), absl::StrCat(text, ": ", cause.message()));
    cause.ForEachPayload(
        [&status](absl::string_view type, const absl::Cord& payload) { status.SetPayload(type, payload); });
    return status;
}

template <class Thrown>
[[gnu::noinline]] int ThrowBelow(int frames, const Thrown& thrown) {
    if (frames == 0) throw Thrown(thrown);
    const int result = ThrowBelow(frames - 1, thrown) + 1;
    asm volatile("" : : "r"(result));
    return result;
}

template <class Thrown>
void ThrowAndCatch(const Thrown& thrown) {
    try {
        ThrowBelow(kFrames, thrown);
    } catch (const Thrown& caught) {
        bench::Use(&caught);
    }
}

void MeasureRecords() {
    bench::Beside(
        "made and destroyed", 0, [] { bench::Use(MakeMessage().GetTemplate()); },
        [] { bench::Use(MakeStatus().message().data()); });

    const Message message = MakeMessage();
    const absl::Status status = MakeStatus();
    bench::Beside(
        "copied", 0,
        [&] {
            const Message copy(message);
            bench::Use(&copy);
        },
        [&] {
            const absl::Status copy(status);
            bench::Use(&copy);
        });
    bench::Beside(
        "made and wrapped twice", 0,
        [] {
            Message wrapped = MakeMessage();
            WrapTwice(wrapped);
            bench::Use(&wrapped);
        },
        [] {
            const absl::Status wrapped =
                WrapStatus(WrapStatus(MakeStatus(), "The report can't be loaded"), "The project is not open");
            bench::Use(&wrapped);
        });
    bench::Beside(
        "thrown and caught through ten frames", 0, [&] { ThrowAndCatch(message); }, [] { ThrowAndCatch(1); });
}

void MeasureText() {
    Message record = MakeMessage();
    WrapTwice(record);
    const std::string expected = ZBase::FormatMessage(record, 0).c_str();
    const auto format = [] {
        return fmt::format(
            "The project {} is not open. (Server message {})\tThe report can't be loaded. (Server message {})"
            "\t\tThe file {} can't be opened. (Server message {})",
            "Sales", 105, 104, kName, 103);
    };
    if (format() != expected) throw std::runtime_error("the texts differ: " + expected);
    bench::Beside(
        "text of three wrapped levels", 0,
        [&] { bench::Use(ZBase::FormatMessage(std::as_const(record), 0).c_str()); },
        [&] { bench::Use(format().data()); });
}

}  // namespace

int main() {
    MeasureRecords();
    MeasureText();
}
