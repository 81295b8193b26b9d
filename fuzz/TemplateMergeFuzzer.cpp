#include <Base/messages/MessageFormat.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/SlowTemplateMerge.h"

// The input is a template and its parameters, each ended by a zero octet or the end of the input. The merged
// text must be that of the slow model.
//
// For: Base/messages/parts/TemplateMerge.cpp
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> texts(1);
    for (std::size_t i = 0; i != size; ++i) {
        if (data[i] == 0) {
            texts.emplace_back();
        } else {
            texts.back().push_back(static_cast<char>(data[i]));
        }
    }
    const std::string textTemplate = texts.front();
    texts.erase(texts.begin());

    std::vector<const char*> parameters;
    for (const std::string& text : texts) parameters.push_back(text.c_str());
    parameters.push_back(nullptr);
    const ZBase::ReturnString merged =
        ZBase::MergeParametersIntoTemplate(textTemplate.c_str(), parameters.data());
    if (merged.c_str() != test::SlowlyMerged(textTemplate, texts)) std::abort();
    return 0;
}
