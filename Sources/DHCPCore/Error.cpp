#include "DHCPCore/Error.hpp"

#include <system_error>
#include <utility>

namespace DHCPCore {

Error::Error(std::string text) : text_(std::move(text)) {}

const char* Error::what() const noexcept { return text_.c_str(); }

std::string systemText(int number) { return std::generic_category().message(number); }

} // namespace DHCPCore
