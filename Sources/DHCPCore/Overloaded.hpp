#pragma once

namespace DHCPCore {

/// One visitor made of one lambda per case, for `std::visit`.
template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

} // namespace DHCPCore
