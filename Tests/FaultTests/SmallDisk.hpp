#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore::TestSupport {

/// A disk of 256 KiB in memory that only this process and its children see; gone with them, or with this.
class SmallDisk {
  public:
    /// Made in the folder, where the process may do that.
    explicit SmallDisk(const std::filesystem::path& folder);
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    SmallDisk(SmallDisk&&) = delete;
    SmallDisk& operator=(SmallDisk&&) = delete;
    ~SmallDisk();

    /// A reason to skip a test; nothing when there is a disk.
    [[nodiscard]] const std::optional<std::string>& whyThereIsNone() const { return refusal_; }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// The names of what lies on it, sorted.
    [[nodiscard]] std::vector<std::string> names() const;

    /// Writes a file "filler" until there is no room for another byte.
    void fill() const;
    void makeRoom() const { std::filesystem::remove(path_ / "filler"); }
    /// @throws std::runtime_error
    void setReadOnly(bool readOnly) const;

  private:
    std::filesystem::path path_;
    std::optional<std::string> refusal_;
};

} // namespace DHCPCore::TestSupport
