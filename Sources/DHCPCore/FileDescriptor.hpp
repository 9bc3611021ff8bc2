#pragma once

#include <span>
#include <string_view>

namespace DHCPCore {

/// Owns an open descriptor and closes it. Movable, not copyable.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : number_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { close(); }

    /// -1 while nothing is open.
    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool isOpen() const { return number_ >= 0; }

    /// Harmless when nothing is open. Keeps `errno`.
    void close();

    /// Hands the descriptor to the caller, unclosed.
    [[nodiscard]] int release();

  private:
    int number_ = -1;
};

/// Writes everything, whatever the descriptor's pace. @return 0, or the error number of the write that was refused.
[[nodiscard]] int writeAll(int descriptor, std::string_view text);

/// The same for a text in pieces, with few calls of the system.
[[nodiscard]] int writeAll(int descriptor, std::span<const std::string_view> pieces);

} // namespace DHCPCore
