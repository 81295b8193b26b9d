#pragma once

#include <Base/messages/Message.h>

#include <string>

namespace test {

/// The content of a message tree, message by message, without what its XML form omits: number formats, wide
/// texts and dead records. Domains are given by `domainOf`, texts by language, parameters in order. Reads the
/// bytes, at any depth.
std::string DescribeTree(const ZBase::Message& message,
                         unsigned short (*domainOf)(unsigned short domain) = nullptr);

/// Puts a random tree of up to 40 levels and some hundred records into an empty message. Texts hold every
/// kind of character that XML can; domains have names.
void FillAtRandom(ZBase::Message& message, unsigned int seed);

/// The same with any octets in the texts, each text as converted by `form`.
void FillWithOctets(ZBase::Message& message, unsigned int seed,
                    std::string (*form)(const std::string& octets));

}  // namespace test
