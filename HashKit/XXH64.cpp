#include "HashKit/XXH64.h"

#include <cstdio>
#include <new>

#define XXH_STATIC_LINKING_ONLY
#include <xxhash.h>

namespace {

XXH64_state_t* stateIn(std::byte* storage)
{
    return std::launder(reinterpret_cast<XXH64_state_t*>(storage));
}

const XXH64_state_t* stateIn(const std::byte* storage)
{
    return std::launder(reinterpret_cast<const XXH64_state_t*>(storage));
}

} // namespace

XXH64::XXH64(std::uint64_t seed)
    : seed_(seed)
{
    static_assert(sizeof(XXH64_state_t) == sizeof(state_), "xxhash state layout changed");
    static_assert(alignof(XXH64_state_t) <= 8, "xxhash state alignment changed");
    ::new (static_cast<void*>(state_)) XXH64_state_t;
    XXH64_reset(stateIn(state_), seed);
}

void XXH64::update(const void* data, std::size_t length)
{
    if (data == nullptr || length == 0)
        return;
    XXH64_update(stateIn(state_), data, length);
}

std::uint64_t XXH64::value() const
{
    return XXH64_digest(stateIn(state_));
}

std::string XXH64::finalize() const
{
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value()));
    return text;
}
