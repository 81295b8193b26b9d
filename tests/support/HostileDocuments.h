#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test {

/// A document of a chosen size that is to make a reader of XML work more than its bytes are worth: one
/// construct of the grammar, as long or as often as fits. Some are well-formed, some are not.
struct HostileDocument {
    const char* name;                       // letters and digits
    std::string (*make)(std::size_t size);  // of about that many bytes
};

/// One for each construct, in each encoding where that matters.
const std::vector<HostileDocument>& HostileDocuments();

}  // namespace test
