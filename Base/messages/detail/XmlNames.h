#pragma once

namespace ZBase::detail {

// The names of the XML form of a message.
inline constexpr char kMessageElement[] = "message";
inline constexpr char kDomainElement[] = "domain";
inline constexpr char kIDElement[] = "id";
inline constexpr char kTemplateElement[] = "template";
inline constexpr char kParameterElement[] = "parameter";
inline constexpr char kTextElement[] = "text";
inline constexpr char kLowerLevelElement[] = "lower_level_message";
inline constexpr char kSameLevelElement[] = "same_level_message";
inline constexpr char kLanguageAttribute[] = "language_id";

}  // namespace ZBase::detail
