#include "tests/support/HostileDocuments.h"

#include <string_view>

namespace test {

namespace {

// As many units as fit between a head and a tail.
std::string Filled(std::string_view head, std::string_view unit, std::string_view tail, std::size_t size) {
    std::string document(head);
    document.reserve(size + unit.size() + tail.size());
    while (document.size() + unit.size() + tail.size() <= size) document += unit;
    return document += tail;
}

// The same with the number of the unit inside it.
std::string Numbered(std::string_view head, std::string_view front, std::string_view back,
                     std::string_view tail, std::size_t size) {
    std::string document(head);
    document.reserve(size + 64);
    for (unsigned int number = 0; document.size() + tail.size() + front.size() + back.size() < size; ++number)
        document.append(front).append(std::to_string(number)).append(back);
    return document += tail;
}

// Declarations in one half and uses that they could multiply in the other.
std::string Declared(std::string_view head, std::string_view front, std::string_view back,
                     std::string_view middle, std::string_view unit, std::string_view tail,
                     std::size_t size) {
    return Numbered(head, front, back, middle, size / 2) + Filled("", unit, tail, size / 2);
}

std::string Nested(std::string_view start, std::string_view end, std::size_t levels, std::string_view inner) {
    std::string document;
    for (std::size_t level = 0; level < levels; ++level) document += start;
    document += inner;
    for (std::size_t level = 0; level < levels; ++level) document += end;
    return document;
}

std::string Wide(std::string_view text, bool isBigEndian) {
    std::string wide(isBigEndian ? "\xFE\xFF" : "\xFF\xFE");
    wide.reserve(2 * text.size() + 2);
    for (const char octet : text) {
        if (isBigEndian) wide += '\0';
        wide += octet;
        if (!isBigEndian) wide += '\0';
    }
    return wide;
}

// 128 attributes, the most that one element may have declared.
std::string AttributeList(std::string_view type) {
    std::string list = "<!DOCTYPE e [<!ATTLIST e";
    for (int number = 0; number < 128; ++number)
        list.append(" a").append(std::to_string(number)).append(" ").append(type).append(" #IMPLIED");
    return list + ">]><r>";
}

std::string AllLanguages(std::size_t size) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string document = "<m>";
    for (unsigned int number = 0; document.size() + 40 < size; ++number) {
        document += "<text language_id=\"";
        for (int shift = 12; shift >= 0; shift -= 4) document += digits[number >> shift & 15];
        document += "\">t</text>";
    }
    return document + "</m>";
}

std::string Growing(std::string_view start, std::string_view end, std::size_t size) {
    std::string document = "<m>";
    for (std::size_t length = 1; document.size() + length + 40 < size; length += 1 + length / 8)
        document.append(start).append(length, 'x').append(end);
    return document + "</m>";
}

}  // namespace

const std::vector<HostileDocument>& HostileDocuments() {
    using Size = std::size_t;
    static const std::vector<HostileDocument> documents{
        // Long tokens, and many short ones.
        {"LongComment", [](Size size) { return Filled("<a><!--", "x", "--></a>", size); }},
        {"CommentOfArrows", [](Size size) { return Filled("<a><!--", "->", "--></a>", size); }},
        {"CommentInFront", [](Size size) { return Filled("<!--", "x", "--><a/>", size); }},
        {"CommentBehind", [](Size size) { return Filled("<a/><!--", "x", "-->", size); }},
        {"CommentWithoutEnd", [](Size size) { return Filled("<a><!--", "x", "", size); }},
        {"ManyComments", [](Size size) { return Filled("<a>", "<!---->", "</a>", size); }},
        {"ManyCommentsBehind", [](Size size) { return Filled("<a/>", "<!---->", "", size); }},
        {"LongInstruction", [](Size size) { return Filled("<a><?p ", "x", "?></a>", size); }},
        {"InstructionOfArrows", [](Size size) { return Filled("<a><?p ", "?", "></a>", size); }},
        {"LongInstructionName", [](Size size) { return Filled("<a><?", "p", "?></a>", size); }},
        {"ManyInstructions", [](Size size) { return Filled("<a>", "<?p?>", "</a>", size); }},
        {"LongSection", [](Size size) { return Filled("<a><![CDATA[", "x", "]]></a>", size); }},
        {"SectionOfBrackets", [](Size size) { return Filled("<a><![CDATA[", "]", "]]></a>", size); }},
        {"ManySections", [](Size size) { return Filled("<a>", "<![CDATA[]]>", "</a>", size); }},
        {"LongText", [](Size size) { return Filled("<a>", "x", "</a>", size); }},
        {"TextOfBrackets", [](Size size) { return Filled("<a>", "]]", " </a>", size); }},
        {"TextOfLines", [](Size size) { return Filled("<a>", "\n", "</a>", size); }},
        {"TextOfCarriageReturns", [](Size size) { return Filled("<a>", "\r", "</a>", size); }},
        {"TextOfLineEnds", [](Size size) { return Filled("<a>", "\r\n", "</a>", size); }},
        {"ManyTexts", [](Size size) { return Filled("<a>", "x<b/>", "</a>", size); }},
        {"Spaces", [](Size size) { return Filled("<?xml version='1.0'?>", " ", "<a/>", size); }},
        {"SpacesBehind", [](Size size) { return Filled("<a/>", "\r\n", "", size); }},
        {"SpacesInATag", [](Size size) { return Filled("<a", " ", "/>", size); }},
        {"SpacesInAnEndTag", [](Size size) { return Filled("<a></a", "\n", ">", size); }},
        {"LongVersion", [](Size size) { return Filled("<?xml version='1.", "0", "'?><a/>", size); }},
        {"LongEncoding",
         [](Size size) { return Filled("<?xml version='1.0' encoding='U", "8", "'?><a/>", size); }},
        {"LongDeclaration", [](Size size) { return Filled("<?xml version='1.0'", " ", "?><a/>", size); }},
        // References.
        {"CharacterReferences", [](Size size) { return Filled("<a>", "&#65;", "</a>", size); }},
        {"LongCharacterReference", [](Size size) { return Filled("<a>&#", "0", "65;</a>", size); }},
        {"PredefinedReferences", [](Size size) { return Filled("<a>", "&lt;", "</a>", size); }},
        {"UnknownReferences",
         [](Size size) { return Filled("<!DOCTYPE a SYSTEM 'x'><a>", "&b;", "</a>", size); }},
        {"LongReferenceName", [](Size size) { return Filled("<a>&", "b", ";</a>", size); }},
        {"ReferencesInAnAttribute", [](Size size) { return Filled("<a b='", "&#10;&amp;", "'/>", size); }},
        // Elements and attributes.
        {"LongName", [](Size size) { return Filled("<", "a", "/>", size); }},
        {"LongNames",
         [](Size size) { return Filled("<", "a", ">", size / 2) + Filled("</", "a", ">", size / 2); }},
        {"NamesOfColons", [](Size size) { return Filled("<r><", "a:", "b/></r>", size); }},
        {"ManyNames", [](Size size) { return Numbered("<r>", "<e", "/>", "</r>", size); }},
        {"ManyPrefixes",
         [](Size size) { return Numbered("<r>", "<p:e xmlns:p='u' p:a", "='v'/>", "</r>", size); }},
        {"LongAttribute", [](Size size) { return Filled("<a b='", "x", "'/>", size); }},
        {"AttributeOfArrows", [](Size size) { return Filled("<a b='", ">", "'/>", size); }},
        {"LongAttributeName", [](Size size) { return Filled("<a ", "b", "=''/>", size); }},
        {"ManyAttributes", [](Size size) { return Numbered("<a", " b", "=''", "/>", size); }},
        {"ManySameAttributes", [](Size size) { return Filled("<a", " b=''", "/>", size); }},
        {"ManyAttributesOfManyElements",
         [](Size size) { return Numbered("<r>", "<e a", "=''/>", "</r>", size); }},
        {"ManyAttributesAgain",
         [](Size size) {
             return Numbered("<r><a", " b", "=''", "/>", size / 2) +
                    Filled("", "<a b0=''/>", "</r>", size / 2);
         }},
        {"ManyElements", [](Size size) { return Filled("<r>", "<e/>", "</r>", size); }},
        {"ManyLevels", [](Size size) { return Nested("<e>", "</e>", size / 7, ""); }},
        {"ManyLevelsAgain",
         [](Size size) {
             const std::string levels = Nested("<e>", "</e>", 9000, "");
             return Filled("<r>", levels, "</r>", size > levels.size() ? size : levels.size() + 8);
         }},
        {"ManyLevelsWithoutEnd", [](Size size) { return Filled("<r>", "<e>", "", size); }},
        {"LevelsOfLongNames",
         [](Size size) {
             const std::string name(size / 2000, 'a');
             return Nested("<" + name + ">", "</" + name + ">", 999, "");
         }},
        {"ManyEnds", [](Size size) { return Filled("<r>", "</e>", "", size); }},
        // Declarations.
        {"DeepContentModel", [](Size size) { return Filled("<!DOCTYPE a [<!ELEMENT a ", "(", "", size); }},
        {"DeepContentModelWithEnd",
         [](Size size) { return "<!DOCTYPE a [<!ELEMENT a " + Nested("(", ")", size / 2, "b") + ">]><a/>"; }},
        {"WideContentModel",
         [](Size size) { return Filled("<!DOCTYPE a [<!ELEMENT a (b", "|b", ")>]><a/>", size); }},
        {"ManyElementTypes",
         [](Size size) { return Numbered("<!DOCTYPE a [", "<!ELEMENT e", " ANY>", "]><a/>", size); }},
        {"OneElementTypeOften",
         [](Size size) { return Filled("<!DOCTYPE a [", "<!ELEMENT e ANY>", "]><a/>", size); }},
        {"IdentifiersOfOneElement",
         [](Size size) {
             return Declared("<!DOCTYPE e [<!ATTLIST e", " a", " ID #IMPLIED", ">]><r>", "<e/>", "</r>",
                             size);
         }},
        {"AttributesOfOneElement",
         [](Size size) {
             return Declared("<!DOCTYPE e [<!ATTLIST e", " a", " CDATA #IMPLIED", ">]><r>", "<e/>", "</r>",
                             size);
         }},
        {"TokensOfOneElement",
         [](Size size) {
             return Numbered("<!DOCTYPE e [<!ATTLIST e", " a", " NMTOKENS #IMPLIED", ">]>", size / 2) +
                    Numbered("<e", " a", "='x y'", "/>", size / 2);
         }},
        {"AttributesOfOneElementOneByOne",
         [](Size size) {
             return Declared("<!DOCTYPE e [", "<!ATTLIST e a", " ID #IMPLIED>", "]><r>", "<e/>", "</r>",
                             size);
         }},
        {"MostIdentifiersAndManyElements",
         [](Size size) { return Filled(AttributeList("ID"), "<e/>", "</r>", size); }},
        {"MostTokensAndManyAttributes",
         [](Size size) { return Filled(AttributeList("NMTOKENS"), "<e a127=' x '/>", "</r>", size); }},
        {"AttributesOfManyElements",
         [](Size size) {
             return Declared("<!DOCTYPE e [", "<!ATTLIST e", " a ID #IMPLIED b CDATA #REQUIRED>", "]><r>",
                             "<e/>", "</r>", size);
         }},
        {"AttributesOfALongName",
         [](Size size) {
             return Filled("<!DOCTYPE e [<!ATTLIST ", "e", "", size / 2) +
                    Numbered("", " a", " CDATA #IMPLIED", ">]><e/>", size / 2);
         }},
        {"ValuesOfAnAttribute",
         [](Size size) { return Filled("<!DOCTYPE e [<!ATTLIST e a (b", "|b", ") #IMPLIED>]><e/>", size); }},
        {"DefaultOfAnAttribute",
         [](Size size) { return Filled("<!DOCTYPE e [<!ATTLIST e a CDATA '", "b", "'>]><e/>", size); }},
        {"ManyNotations",
         [](Size size) { return Numbered("<!DOCTYPE e [", "<!NOTATION n", " SYSTEM 's'>", "]><e/>", size); }},
        {"LongNotation",
         [](Size size) { return Filled("<!DOCTYPE e [<!NOTATION n SYSTEM '", "s", "'>]><e/>", size); }},
        {"ManyEntities",
         [](Size size) { return Numbered("<!DOCTYPE e [", "<!ENTITY e", " 'v'>", "]><e/>", size); }},
        {"LongEntity",
         [](Size size) { return Filled("<!DOCTYPE e [<!ENTITY e '", "v", "'>]><e>&e;</e>", size); }},
        {"ParameterReferences", [](Size size) { return Filled("<!DOCTYPE e [", "%p;", "]><e/>", size); }},
        {"ParameterReferencesOfAnOuterPart",
         [](Size size) { return Filled("<!DOCTYPE e SYSTEM 'x' [", "%p;", "]><e/>", size); }},
        {"ConditionalSections",
         [](Size size) { return Filled("<!DOCTYPE e [", "<![IGNORE[", "]]>]><e/>", size); }},
        {"LongSystemName", [](Size size) { return Filled("<!DOCTYPE e SYSTEM '", "s", "'><e/>", size); }},
        {"LongPublicName", [](Size size) { return Filled("<!DOCTYPE e PUBLIC '", "p", "' 's'><e/>", size); }},
        {"LongTypeName", [](Size size) { return Filled("<!DOCTYPE ", "e", "><e/>", size); }},
        {"CommentsAmongDeclarations",
         [](Size size) { return Filled("<!DOCTYPE e [", "<!---->", "]><e/>", size); }},
        {"InstructionsAmongDeclarations",
         [](Size size) { return Filled("<!DOCTYPE e [", "<?p?>", "]><e/>", size); }},
        {"SpacesAmongDeclarations",
         [](Size size) { return Filled("<!DOCTYPE e [", "\r\n", "]><e/>", size); }},
        {"DeclarationWithoutEnd",
         [](Size size) { return Filled("<!DOCTYPE e [<!NOTATION ", "n", "", size); }},
        // Encodings.
        {"LongCommentInUtf16",
         [](Size size) { return Wide(Filled("<a><!--", "x", "--></a>", size / 2), false); }},
        {"LongTextInUtf16", [](Size size) { return Wide(Filled("<a>", "x\r\n", "</a>", size / 2), true); }},
        {"LongAttributeInUtf16",
         [](Size size) { return Wide(Filled("<a b='", "x", "'/>", size / 2), true); }},
        {"LongNameInUtf16", [](Size size) { return Wide(Filled("<", "a", "/>", size / 2), false); }},
        {"ManyAttributesInUtf16",
         [](Size size) { return Wide(Numbered("<a", " b", "=''", "/>", size / 2), false); }},
        {"ManyElementsInUtf16",
         [](Size size) { return Wide(Filled("<r>", "<e/>", "</r>", size / 2), true); }},
        {"IdentifiersInUtf16",
         [](Size size) {
             return Wide(Declared("<!DOCTYPE e [<!ATTLIST e", " a", " ID #IMPLIED", ">]><r>", "<e/>", "</r>",
                                  size / 2),
                         false);
         }},
        {"HighOctetsInLatin1",
         [](Size size) {
             return Filled("<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE9'>", "\xE9", "</a>", size);
         }},
        {"CommentInLatin1",
         [](Size size) {
             return Filled("<?xml version='1.0' encoding='ISO-8859-1'?><a><!--", "\xE9", "--></a>", size);
         }},
        {"LongTextInAscii",
         [](Size size) {
             return Filled("<?xml version='1.0' encoding='US-ASCII'?><a>", "x", "\xE9</a>", size);
         }},
        {"LongCharacters", [](Size size) { return Filled("<a>", "\xF0\x9F\x98\x80", "</a>", size); }},
        {"CutCharacter", [](Size size) { return Filled("<a>", "\xE2\x82\xAC", "\xE2\x82</a>", size); }},
        {"LoneSurrogates", [](Size size) { return Filled("<a><!--", "\xED\xA0\x80", "--></a>", size); }},
        {"ContinuationOctets", [](Size size) { return Filled("<a>", "\x80", "</a>", size); }},
        {"Zeros", [](Size size) { return Filled("<a>", std::string_view("\0", 1), "</a>", size); }},
        // What a message is made of.
        {"Parameters", [](Size size) { return Filled("<m>", "<parameter>p</parameter>", "</m>", size); }},
        {"NestedParameters",
         [](Size size) {
             return Filled("<m><lower_level_message>", "<parameter/>", "</lower_level_message></m>", size);
         }},
        {"Headers",
         [](Size size) { return Filled("<m>", "<id>1</id><domain>Server</domain>", "</m>", size); }},
        {"LongNumber", [](Size size) { return Filled("<m><id>", "1", "</id></m>", size); }},
        {"LongDomain", [](Size size) { return Filled("<m><domain>", "S", "</domain></m>", size); }},
        {"LongLanguage",
         [](Size size) { return Filled("<m><text language_id='", "0", "9'>t</text></m>", size); }},
        {"LongBadLanguage",
         [](Size size) { return Filled("<m><text language_id='", "g", "'>t</text></m>", size); }},
        {"AllLanguages", AllLanguages},
        {"GrowingTemplates", [](Size size) { return Growing("<template>", "</template>", size); }},
        {"GrowingTexts", [](Size size) { return Growing("<text>", "</text>", size); }},
        {"TextWithinText",
         [](Size size) { return Filled("<m><text>", "<text>t</text>", "</text></m>", size); }},
        {"TextOfManyEnds", [](Size size) { return Filled("<m><text>", "t<x/>t", "</text></m>", size); }},
        {"LowerLevels",
         [](Size size) {
             const std::string levels =
                 Nested("<lower_level_message><id>1</id>", "</lower_level_message>", 9000, "");
             return Filled("<m>", levels, "</m>", size > levels.size() ? size : levels.size() + 8);
         }},
        {"SameLevels",
         [](Size size) {
             const std::string levels =
                 Nested("<same_level_message>", "<id>1</id></same_level_message>", 9000, "");
             return Filled("<m>", levels, "</m>", size > levels.size() ? size : levels.size() + 8);
         }},
        {"LargeContentUnderManyLevels",
         [](Size size) {
             return Nested("<lower_level_message>", "<id>1</id></lower_level_message>", 9000,
                           Filled("<template>", "x", "</template>", size));
         }},
    };
    return documents;
}

}  // namespace test
