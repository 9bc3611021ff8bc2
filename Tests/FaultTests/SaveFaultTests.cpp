// The lease file while the system refuses what its saving, or its moving aside, asks for, or ends the process there.
#include "DHCPCore/Error.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "FaultTests/SystemFaults.hpp"
#include "Support/EnvironmentVariable.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using Kind = SystemCall::Kind;
using Names = std::vector<std::string>;

constexpr const char* asideName = "leases.json.corrupt-20250314-093005"; // in UTC

const LeaseTable oldTable{{boundLease(mac(1), ip(10))}, {}};
const LeaseTable newTable{{boundLease(mac(1), ip(10)), boundLease(mac(2), ip(11))}, {}};

/// A lease file in a folder of its own. What each test is about happens to its file again and again, at every call.
class FaultTest : public testing::Test {
  protected:
    FaultTest() : umaskBefore_(::umask(022)) {}
    ~FaultTest() override { ::umask(umaskBefore_); }

    /// The old document, with a mode and, where this process may give files away, a group that a new file would not get
    /// by itself.
    void putOldFile() const {
        file.save(oldTable);
        ASSERT_EQ(::chmod(file.url.c_str(), 0664), 0);
        if (mayGiveFilesAway()) {
            ASSERT_EQ(::chown(file.url.c_str(), 0, 1), 0);
        }
    }

    [[nodiscard]] static bool mayGiveFilesAway() { return ::geteuid() == 0; }

    [[nodiscard]] LeaseTable loaded() const { return file.load(now).table; }

    TemporaryDirectory folder;
    LeaseFile file{.url = folder / "leases.json"};

  private:
    EnvironmentVariable zone_{"TZ", "UTC0"};
    mode_t umaskBefore_;
};

/// What the work asks of the system, in order.
std::vector<Kind> callsOf(const std::function<void()>& work) {
    std::vector<Kind> calls;
    const InjectedFaults faults([&calls](const SystemCall& call) {
        calls.push_back(call.kind);
        return Fate{};
    });
    work();
    return calls;
}

/// Does the work while its call at `place` has that fate. @return the text of its error; empty when it had none.
std::string failureOf(const std::function<void()>& work, std::size_t place, Fate fate) {
    const InjectedFaults faults([place, fate](const SystemCall& call) { return call.place == place ? fate : Fate{}; });
    try {
        work();
    } catch (const LeaseFileError& error) {
        return error.description();
    }
    return "";
}

/// Does the work in a child that is killed at that call. @return whether it was.
bool isKilledAt(const std::function<void()>& work, std::size_t place, bool afterwards) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::ignore = failureOf(work, place, {Fate::Kills{afterwards}});
        ::_exit(0);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

TEST_F(FaultTest, AsksTheSystemForTheseCallsToReplaceItsFile) {
    putOldFile();
    const auto calls = callsOf([this] { file.save(newTable); });
    std::vector expected{Kind::open,  Kind::lock,   Kind::changeMode, Kind::write,
                         Kind::close, Kind::rename, Kind::lock,       Kind::close};
    if (mayGiveFilesAway()) {
        expected.insert(expected.begin() + 2, Kind::changeOwner);
    }
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(loaded(), newTable);
}

/// Where the call stands that puts the new document in place.
std::size_t placeOfRename(const std::vector<Kind>& calls) {
    return static_cast<std::size_t>(std::ranges::find(calls, Kind::rename) - calls.begin());
}

/// The sentence for a save whose call at that place is refused; empty where the save can do without.
std::string saveRefusal(const std::vector<Kind>& calls, std::size_t place, int number) {
    const Kind kind = calls.at(place);
    if (kind == Kind::lock || kind == Kind::changeOwner || place > placeOfRename(calls)) {
        return "";
    }
    return fmt::format("Could not {} leases.json: {}", kind == Kind::rename ? "replace" : "write", systemText(number));
}

TEST_F(FaultTest, KeepsTheOldDocumentWhicheverCallIsRefused) {
    putOldFile();
    const auto save = [this] { file.save(newTable); };
    const auto calls = callsOf(save);
    for (std::size_t place = 0; place < calls.size(); ++place) {
        for (const int number : {EIO, ENOSPC, EDQUOT, EROFS, EACCES, EMFILE, ENFILE, ENOMEM, ESTALE}) {
            SCOPED_TRACE(fmt::format("{} refused: {}", description(calls[place]), systemText(number)));
            putOldFile();
            const std::string expected = saveRefusal(calls, place, number);
            EXPECT_EQ(failureOf(save, place, {Fate::Fails{number}}), expected);
            EXPECT_EQ(folder.names(), Names{"leases.json"});
            EXPECT_EQ(loaded(), expected.empty() ? newTable : oldTable);
            save();
            EXPECT_EQ(loaded(), newTable) << "the next good save";
            EXPECT_EQ(folder.names(), Names{"leases.json"});
        }
    }
}

TEST_F(FaultTest, SaysWhichFolderCouldNotBeMade) {
    const LeaseFile deep{.url = folder / "a" / "leases.json"};
    const InjectedFaults faults(
        [](const SystemCall& call) { return call.kind == Kind::mkdir ? Fate{Fate::Fails{ENOSPC}} : Fate{}; });
    try {
        deep.save(newTable);
        ADD_FAILURE() << "nothing was refused";
    } catch (const LeaseFileError& error) {
        EXPECT_EQ(error.description(),
                  fmt::format("Could not create {}: {}", (folder / "a").string(), systemText(ENOSPC)));
    }
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(FaultTest, GoesOnAfterShortAndInterruptedWrites) {
    putOldFile();
    const InjectedFaults faults([](const SystemCall& call) {
        if (call.kind != Kind::write) {
            return Fate{};
        }
        return call.place % 3 == 0 ? Fate{Fate::Fails{EINTR}} : Fate{Fate::WritesShort{7}};
    });
    file.save(newTable);
    EXPECT_EQ(loaded(), newTable);
}

TEST_F(FaultTest, KeepsTheOldDocumentWhenTheDiskFillsUpHalfWay) {
    putOldFile();
    const auto save = [this] { file.save(newTable); };
    const InjectedFaults faults([written = 0](const SystemCall& call) mutable {
        if (call.kind != Kind::write) {
            return Fate{};
        }
        return ++written > 2 ? Fate{Fate::Fails{ENOSPC}} : Fate{Fate::WritesShort{100}};
    });
    EXPECT_THROW(save(), LeaseFileError);
    EXPECT_EQ(loaded(), oldTable);
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(FaultTest, ClearsWhatItCouldNotRemoveAtTheNextStart) {
    putOldFile();
    {
        const InjectedFaults faults([](const SystemCall& call) {
            return call.kind == Kind::rename || call.kind == Kind::unlink ? Fate{Fate::Fails{EIO}} : Fate{};
        });
        EXPECT_THROW(file.save(newTable), LeaseFileError);
    }
    EXPECT_EQ(folder.names().size(), 2U);
    file.removeLeftovers();
    EXPECT_EQ(folder.names(), Names{"leases.json"});
    EXPECT_EQ(loaded(), oldTable);
}

TEST_F(FaultTest, HasTheOldOrTheNewDocumentWhereverItIsKilled) {
    putOldFile();
    const auto save = [this] { file.save(newTable); };
    const auto calls = callsOf(save);
    for (std::size_t place = 0; place < calls.size(); ++place) {
        for (const bool afterwards : {false, true}) {
            SCOPED_TRACE(fmt::format("killed {} {}", afterwards ? "after" : "before", description(calls[place])));
            putOldFile();
            ASSERT_TRUE(isKilledAt(save, place, afterwards));
            const bool isInPlace = place > placeOfRename(calls) || (place == placeOfRename(calls) && afterwards);
            EXPECT_EQ(loaded(), isInPlace ? newTable : oldTable);
            file.removeLeftovers();
            EXPECT_EQ(folder.names(), Names{"leases.json"});
        }
    }
}

TEST_F(FaultTest, LeavesAFileUntouchedThatTheSystemDoesNotRead) {
    putOldFile();
    const std::string text = readText(file.url);
    const auto load = [this] { std::ignore = file.load(now); };
    const auto calls = callsOf(load);
    ASSERT_EQ(calls, (std::vector{Kind::open, Kind::read, Kind::read, Kind::close}));
    for (std::size_t place = 0; place < 3; ++place) {
        EXPECT_EQ(failureOf(load, place, {Fate::Fails{EIO}}), "Could not read leases.json: " + systemText(EIO));
        EXPECT_EQ(folder.names(), Names{"leases.json"});
        EXPECT_EQ(readText(file.url), text);
    }
}

/// Whether these bytes lie under the file's own name or the one aside.
bool isKept(const TemporaryDirectory& folder, const std::string& text) {
    return readText(folder / "leases.json") == text || readText(folder / asideName) == text;
}

TEST_F(FaultTest, LosesNoByteOfADamagedFileWhicheverCallIsRefusedOrKillsIt) {
    const auto load = [this] { std::ignore = file.load(now); };
    writeText(file.url, "damaged");
    const auto calls = callsOf(load);
    ASSERT_EQ(calls,
              (std::vector{Kind::open, Kind::read, Kind::read, Kind::close, Kind::open, Kind::close, Kind::rename}));
    for (std::size_t place = 0; place < calls.size(); ++place) {
        const auto anew = [this] {
            std::filesystem::remove(folder / asideName);
            writeText(file.url, "damaged");
        };
        SCOPED_TRACE(fmt::format("{} at {}", description(calls[place]), place));
        anew();
        std::ignore = failureOf(load, place, {Fate::Fails{EIO}});
        EXPECT_TRUE(isKept(folder, "damaged"));
        EXPECT_EQ(folder.names().size(), 1U);
        for (const bool afterwards : {false, true}) {
            anew();
            ASSERT_TRUE(isKilledAt(load, place, afterwards));
            EXPECT_TRUE(isKept(folder, "damaged"));
        }
    }
}

} // namespace
} // namespace DHCPCore
