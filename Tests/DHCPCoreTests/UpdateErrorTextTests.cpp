#include "DHCPCore/Error.hpp"
#include "DHCPCore/UpdateErrorText.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using UpdateErrorText::describe;

/// The chain of these descriptions, the headline first.
PlatformError chainOf(std::vector<std::string> descriptions) {
    PlatformError error(descriptions.back());
    descriptions.pop_back();
    for (; !descriptions.empty(); descriptions.pop_back()) {
        error = PlatformError(descriptions.back(), std::move(error));
    }
    return error;
}

TEST(PlatformErrorTest, HoldsItsDescriptionAndTheErrorBeneath) {
    const PlatformError deepest("Connection refused");
    const PlatformError error("No answer", PlatformError("Not reachable", deepest));
    EXPECT_EQ(error.localizedDescription(), "No answer");
    EXPECT_EQ(error.underlyingError(), PlatformError("Not reachable", deepest));
    EXPECT_EQ(error.underlyingError()->underlyingError(), deepest);
    EXPECT_EQ(deepest.underlyingError(), std::nullopt);
    EXPECT_NE(error, PlatformError("No answer"));
}

TEST(UpdateErrorTextTest, DescribesAnErrorWithoutAnyBeneathByItself) {
    EXPECT_EQ(describe(PlatformError("No newer version was found.")), "No newer version was found.");
    EXPECT_EQ(describe(PlatformError("The operation couldn’t be completed.")), "The operation couldn’t be completed.");
}

TEST(UpdateErrorTextTest, AddsTheDeepestDescription) {
    EXPECT_EQ(describe(chainOf({"No answer", "Not reachable"})), "No answer (Not reachable)");
    EXPECT_EQ(describe(chainOf({"No answer", "Not reachable", "Connection refused"})),
              "No answer (Connection refused)");
}

TEST(UpdateErrorTextTest, SkipsTheSystemsOwnEmptyWords) {
    for (const std::string generic : {"The operation couldn’t be completed. (error -1.)",
                                      "The operation couldn't be completed.", "The operation couldn"}) {
        SCOPED_TRACE(generic);
        EXPECT_EQ(describe(chainOf({"No answer", generic})), "No answer");
        EXPECT_EQ(describe(chainOf({"No answer", "Not reachable", generic})), "No answer (Not reachable)");
        EXPECT_EQ(describe(chainOf({"No answer", generic, "Not reachable"})), "No answer (Not reachable)");
        EXPECT_EQ(describe(chainOf({generic, "Not reachable"})), generic + " (Not reachable)");
    }
}

TEST(UpdateErrorTextTest, SkipsThoseWordsAtTheBeginningOnly) {
    EXPECT_EQ(describe(chainOf({"No answer", "The operation could not begin"})),
              "No answer (The operation could not begin)");
    EXPECT_EQ(describe(chainOf({"No answer", "Sorry. The operation couldn't end"})),
              "No answer (Sorry. The operation couldn't end)");
}

TEST(UpdateErrorTextTest, DoesNotRepeatTheHeadline) {
    EXPECT_EQ(describe(chainOf({"No answer", "No answer"})), "No answer");
    EXPECT_EQ(describe(chainOf({"No answer", "Not reachable", "No answer"})), "No answer")
        << "the deepest one counts, also when it tells nothing new";
}

TEST(UpdateErrorTextTest, AddsAnEmptyDescriptionAsItIs) {
    EXPECT_EQ(describe(chainOf({"No answer", ""})), "No answer ()");
}

TEST(UpdateErrorTextTest, ReachesToAnyDepth) {
    std::vector<std::string> descriptions(100000, "Again");
    descriptions.front() = "No answer";
    descriptions.back() = "Connection refused";
    EXPECT_EQ(describe(chainOf(std::move(descriptions))), "No answer (Connection refused)");
}

/// Throws these texts, each nested in the one before it.
[[noreturn]] void throwNested(const std::vector<std::string>& texts, std::size_t index = 0) {
    if (index + 1 == texts.size()) {
        throw Error(texts[index]);
    }
    try {
        throwNested(texts, index + 1);
    } catch (...) {
        std::throw_with_nested(std::runtime_error(texts[index]));
    }
}

TEST(PlatformErrorTest, TakesOverAnExceptionWithThoseNestedInIt) {
    for (const std::vector<std::string>& texts :
         {std::vector<std::string>{"one"}, {"one", "two"}, {"one", "two", "three", "four"}}) {
        try {
            throwNested(texts);
        } catch (const std::exception& error) {
            EXPECT_EQ(PlatformError(error), chainOf(texts));
        }
    }
}

TEST(PlatformErrorTest, TakesOverAnExceptionThatWasNeverThrown) {
    EXPECT_EQ(PlatformError(std::runtime_error("one")), PlatformError("one"));
}

TEST(PlatformErrorTest, EndsAtWhatIsNestedButNoException) {
    try {
        try {
            throw 42; // NOLINT(hicpp-exception-baseclass): what a foreign library may do
        } catch (...) {
            std::throw_with_nested(std::runtime_error("one"));
        }
    } catch (const std::exception& error) {
        EXPECT_EQ(PlatformError(error), PlatformError("one"));
    }
}

/// Something that could hold another exception, and holds none.
struct Hollow : std::runtime_error, std::nested_exception {
    using std::runtime_error::runtime_error;
};

TEST(PlatformErrorTest, EndsWhereNothingIsNested) { EXPECT_EQ(PlatformError(Hollow("one")), PlatformError("one")); }

} // namespace
} // namespace DHCPCore
