/// \file
/// Objects that outlive every other one.
#pragma once

namespace platform {

/// Constructs a value and never destroys it. For what other objects still use while the process
/// ends, in whatever order those are destroyed.
template<typename T>
union tuImmortal {
    tuImmortal() : value() {}
    tuImmortal(const tuImmortal&) = delete;
    tuImmortal& operator=(const tuImmortal&) = delete;
    ~tuImmortal() {} // leaves the value alone: that is its purpose

    T value;
};

} // namespace platform
