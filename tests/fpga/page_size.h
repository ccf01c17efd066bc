/// \file
/// Pages of another size than the test machine's.
#pragma once

/// What `getpagesize` answers the register blocks for as long as it lives. The head and the host
/// library keep the machine's own pages.
class tcPageSize {
public:
    /// \param bytes a power of two
    explicit tcPageSize(int bytes);
    ~tcPageSize();
    tcPageSize(const tcPageSize&) = delete;
    tcPageSize& operator=(const tcPageSize&) = delete;
};
