#pragma once

// Exiv2 0.27 hands out images through std::auto_ptr, which C++17 deprecated; the
// deprecation says nothing about our code, so it is silenced for this header only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop
