/// \file
/// A host that ends its thread inside the plug-in.
#pragma once

#include <exception>

/// For handlers of everything: `pthread_cancel` and `pthread_exit` come by as an exception that
/// must be thrown on, or the process ends.
/// \return whether the exception that is being handled is one of these: it is not of C++, so that
///         nobody can hold it
inline bool endsThread() noexcept {
    return std::current_exception() == nullptr;
}
