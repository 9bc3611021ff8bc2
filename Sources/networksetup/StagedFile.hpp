#pragma once

#include <string>
#include <string_view>

namespace NetworkSetup {

/// A file's new text, made ready beside it under another name; removed again unless it is put in place.
class StagedFile {
  public:
    /// Writes the text to the disk. A file that will be replaced lends it mode and owner; a missing folder is made.
    /// @throws Error with the reason; a link or anything else that is no plain file is never replaced.
    StagedFile(std::string path, std::string_view text);
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;
    StagedFile(StagedFile&&) = delete;
    StagedFile& operator=(StagedFile&&) = delete;
    ~StagedFile();

    /// Replaces the file as a whole: a reader finds the old or the new one. @throws Error with the reason.
    void putInPlace();

  private:
    std::string path_;
    std::string stagedPath_; ///< Empty once it is in place.
};

} // namespace NetworkSetup
