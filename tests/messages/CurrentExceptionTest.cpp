#include "tests/support/Allocations.h"

#include <Base/frame/Exceptions.h>
#include <Base/messages/CurrentException.h>
#include <Base/messages/MessageTreeText.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

using ZBase::Message;
using ZBase::MessageOfCurrentException;

namespace {

struct Unheard {};

// The tree of the exception of `thrower`.
template <class Thrower>
std::string TreeOf(Thrower thrower) {
    try {
        thrower();
    } catch (...) {
        return ZBase::FormatTree(MessageOfCurrentException()).c_str();
    }
    return "nothing was thrown";
}

void ThrowNested(unsigned int depth) {
    try {
        if (depth == 0) throw Message(300, 42, "innermost");
        ThrowNested(depth - 1);
    } catch (...) {
        std::throw_with_nested(std::runtime_error("level " + std::to_string(depth)));
    }
}

}  // namespace

TEST(CurrentException, IsEmptyWhereNothingIsHandled) {
    EXPECT_TRUE(MessageOfCurrentException().IsEmpty());
}

TEST(CurrentException, OfAMessageIsItsCopy) {
    Message message(300, 42, "Cannot open %1");
    message << "x";
    message.WrapBy(300, 43, "outer");
    try {
        throw ZBase::ExceptionImpl<ZBase::BufferException>(message);
    } catch (...) {
        EXPECT_EQ(MessageOfCurrentException(), message);
    }
}

TEST(CurrentException, OfAStandardOneSaysWhatItSays) {
    EXPECT_EQ(TreeOf([] { throw std::runtime_error("100%% of %1"); }),
              "Unknown -1  100%% of %1 (Unknown message -1)\n");
    EXPECT_EQ(TreeOf([] { throw std::logic_error(""); }), "Unknown -1   (Unknown message -1)\n");
}

TEST(CurrentException, OfASystemErrorWrapsItsNumber) {
    EXPECT_EQ(
        TreeOf([] { throw std::system_error(ENOENT, std::generic_category(), "opening x"); }),
        "Unknown -1  opening x: No such file or directory (Unknown message -1)\n"
        "  Windows Standard C Library 2  No such file or directory (Windows Standard C Library error 2)\n");
    try {
        throw std::system_error(EACCES, std::system_category());
    } catch (...) {
        const Message message = MessageOfCurrentException();
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetDomain(), ZBase::MESSAGE_DOMAIN_ERRNO);
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), EACCES);
    }
    const std::string tree = TreeOf([] { static_cast<void>(std::filesystem::file_size("/no/such/file")); });
    EXPECT_NE(tree.find("/no/such/file"), std::string::npos);
    EXPECT_NE(tree.find("\n  Windows Standard C Library 2  "), std::string::npos);
}

TEST(CurrentException, OfACodeThatIsNoErrorNumberHasNoNumber) {
    const std::string tree =
        TreeOf([] { throw std::system_error(make_error_code(std::future_errc::no_state), "future"); });
    EXPECT_EQ(tree.find("Unknown -1  future: "), 0u);
    EXPECT_EQ(tree.find('\n'), tree.size() - 1);
}

TEST(CurrentException, OfExhaustedMemoryTakesNoneOfIt) {
    try {
        throw std::bad_alloc();
    } catch (...) {
        const test::FailingAllocation failing(0, 1000);
        const Message message = MessageOfCurrentException();
        EXPECT_FALSE(failing.HasFailed());
        EXPECT_EQ(message.GetDomain(), ZBase::MESSAGE_DOMAIN_ERRNO);
        EXPECT_EQ(message.GetID(), ENOMEM);
    }
}

TEST(CurrentException, OfAnythingElseNamesItsType) {
    EXPECT_EQ(TreeOf([] { throw 5; }), "Unknown -1  An exception of type int. (Unknown message -1)\n");
    EXPECT_NE(TreeOf([] { throw Unheard(); }).find("::Unheard. "), std::string::npos);
}

TEST(CurrentException, NestedOnesAreTheCauses) {
    EXPECT_EQ(TreeOf([] { ThrowNested(1); }),
              "Unknown -1  level 1 (Unknown message -1)\n"
              "  Unknown -1  level 0 (Unknown message -1)\n"
              "    Server 42  innermost (Server message 42)\n");
}

TEST(CurrentException, BehindAMessageWithACauseANestedOneFollows) {
    const std::string tree = TreeOf([] {
        try {
            throw std::runtime_error("before");
        } catch (...) {
            Message message(300, 1, "cause");
            message.WrapBy(300, 2, "failure");
            std::throw_with_nested(ZBase::ExceptionImpl<Message>(message));
        }
    });
    EXPECT_EQ(tree,
              "Server 2  failure (Server message 2)\n"
              "  Server 1  cause (Server message 1)\n"
              "Unknown -1  before (Unknown message -1)\n");
}

TEST(CurrentException, ANestedOneWithoutACauseStandsAlone) {
    EXPECT_EQ(TreeOf([] { std::throw_with_nested(std::runtime_error("alone")); }),
              "Unknown -1  alone (Unknown message -1)\n");
}

TEST(CurrentException, CausesEndAtADepthOfSixtyFour) {
    try {
        ThrowNested(200);
    } catch (...) {
        const Message message = MessageOfCurrentException();
        int depth = 0;
        for (const Message* at = &message; at != nullptr; at = at->GetLowerLevelMessageOrNULL()) ++depth;
        EXPECT_EQ(depth, 65);
    }
}

TEST(CurrentException, WithoutMemoryIsShorterAndNeverThrows) {
    try {
        ThrowNested(3);
    } catch (...) {
        const std::size_t failures = test::ForEachFailingAllocation([] {
            const Message message = MessageOfCurrentException();
            EXPECT_EQ(message.GetID(), -1);
        });
        EXPECT_GT(failures, 0u);
    }
}
