#include "DHCPCore/LeaseFile.hpp"
#include "Fuzzing/Files.hpp"
#include "Fuzzing/Fuzzing.hpp"

#include <filesystem>
#include <set>
#include <string>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of one function

namespace {

using Fuzzing::require;

void checkOneRecordPerClient(const LeaseTable& table) {
    std::set<std::string> clients;
    for (const Lease& lease : table.leases()) {
        require(clients.insert(lease.mac.description()).second, "a client has one record");
        require(table.lease(lease.mac) == lease, "a client's record is found");
    }
}

} // namespace

/// The content of a lease file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Fuzzing::ScratchLeaseFile scratch;
    const std::string content{data, data + size};
    TestSupport::writeText(scratch.file().url, content);

    const auto loaded = scratch.file().load(Date{});
    if (loaded.setAsideURL) {
        require(loaded.table == LeaseTable{}, "nothing is taken from a file that can't be read");
        require(TestSupport::readText(*loaded.setAsideURL) == content, "a file set aside keeps every byte");
        std::filesystem::remove(*loaded.setAsideURL);
    }
    checkOneRecordPerClient(loaded.table);

    scratch.file().save(loaded.table);
    const auto again = scratch.file().load(Date{});
    require(!again.setAsideURL && again.table == loaded.table, "a saved table loads to an equal one");
    require(scratch.names() == 1, "no other file is left behind");
    return 0;
}
