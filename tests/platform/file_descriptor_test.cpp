#include "platform/support/file_descriptor.h"

#include <cerrno>
#include <utility>

#include <gtest/gtest.h>

using platform::tcFileDescriptor;

namespace {

bool isOpenInTheKernel(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

} // namespace

TEST(FileDescriptor, IsClosedAtTheEndOfItsScope) {
    int number = -1;
    {
        const auto descriptor = tcFileDescriptor::open("/dev/null", O_RDONLY);
        ASSERT_TRUE(descriptor.isOpen());
        number = descriptor.get();
        EXPECT_TRUE(isOpenInTheKernel(number));
    }
    EXPECT_FALSE(isOpenInTheKernel(number));
}

TEST(FileDescriptor, IsNotInheritedByOtherPrograms) {
    const auto descriptor = tcFileDescriptor::open("/dev/null", O_RDONLY);
    EXPECT_EQ(::fcntl(descriptor.get(), F_GETFD), FD_CLOEXEC);
}

TEST(FileDescriptor, TellsWhyItIsNotOpen) {
    const auto descriptor = tcFileDescriptor::open("/dev/no-such-device", O_RDONLY);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(descriptor.isOpen());
}

TEST(FileDescriptor, MovesItsDescriptor) {
    auto first = tcFileDescriptor::open("/dev/null", O_RDONLY);
    const int number = first.get();
    tcFileDescriptor second(std::move(first));
    EXPECT_EQ(second.get(), number);
    tcFileDescriptor third;
    EXPECT_FALSE(third.isOpen());
    third = std::move(second);
    EXPECT_EQ(third.get(), number);
    EXPECT_TRUE(isOpenInTheKernel(number));
}

TEST(FileDescriptor, ClosesWhatItHeldWhenAnotherIsMovedIn) {
    auto held = tcFileDescriptor::open("/dev/null", O_RDONLY);
    const int number = held.get();
    held = tcFileDescriptor::open("/dev/zero", O_RDONLY);
    EXPECT_FALSE(isOpenInTheKernel(number));
    EXPECT_TRUE(held.isOpen());
}
