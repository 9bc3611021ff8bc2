#pragma once

#include <exception>
#include <string>

namespace DHCPCore {

/// The root of every error that the library throws. `description()` is the sentence for the user.
class Error : public std::exception {
  public:
    explicit Error(std::string text);

    [[nodiscard]] const std::string& description() const { return text_; }
    [[nodiscard]] const char* what() const noexcept override;

  private:
    std::string text_;
};

/// A value in a file or JSON document that is not what its field asks for, as in "Not an IPv4 address: 1.2.3".
class DecodingError : public Error {
  public:
    using Error::Error;
    bool operator==(const DecodingError& other) const { return description() == other.description(); }
};

/// The system's own text for an error number, as `strerror` gives it; safe on any thread.
[[nodiscard]] std::string systemText(int number);

} // namespace DHCPCore
