#include "DHCPCore/Linux/SystemFiles.hpp"

#include "DHCPCore/FileDescriptor.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DHCPCore::SystemFiles {

std::optional<std::string> read(const std::filesystem::path& file) {
    constexpr std::size_t longest = 1U << 20U;
    // Without waiting: where a pipe lies in the place of a file, nobody may ever write into it.
    const FileDescriptor descriptor{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status {};
    if (!descriptor.isOpen() || ::fstat(descriptor.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string text;
    std::array<char, 4096> buffer{};
    while (text.size() < longest) {
        const std::size_t room = std::min(buffer.size(), longest - text.size());
        const ssize_t count = ::read(descriptor.number(), buffer.data(), room);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return text;
}

std::optional<std::string> readLine(const std::filesystem::path& file) {
    auto text = read(file);
    if (text) {
        text->erase(std::min(text->find('\n'), text->size()));
    }
    return text;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace DHCPCore::SystemFiles
