// `stat` and `access` of the device files.

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "sim/virtual_head.h"

namespace {

using testing::IsEmpty;

struct tsGiven {
    int result;
    int error;
    struct stat status;
};

tsGiven statOf(const char* path) {
    tsGiven given{};
    given.result = stat(path, &given.status);
    given.error = given.result == 0 ? 0 : errno;
    return given;
}

struct tsFile {
    const char* path;
    unsigned major;
    unsigned minor;
};

constexpr tsFile kFiles[]{
    {"/dev/spidev1.0", 153, 0},
    {"/dev/gpiochip0", 254, 0},
    {"/dev/i2c-1", 89, 1},
    {"/dev/mem", 1, 1},
};

TEST(Status, DeviceFilesAreCharacterDevicesOfWhoeverRunsTheProgram) {
    const auto head = sim::aVirtualHead().build();
    for (const tsFile& file : kFiles) {
        const tsGiven given = statOf(file.path);
        EXPECT_EQ(given.result, 0) << file.path;
        EXPECT_EQ(given.status.st_mode, static_cast<mode_t>(S_IFCHR | 0600));
        EXPECT_EQ(given.status.st_uid, geteuid());
        EXPECT_EQ(given.status.st_gid, getegid());
        EXPECT_EQ(given.status.st_nlink, 1U);
        EXPECT_EQ(given.status.st_size, 0);
        EXPECT_EQ(major(given.status.st_rdev), file.major) << file.path;
        EXPECT_EQ(minor(given.status.st_rdev), file.minor) << file.path;
    }
    EXPECT_NE(statOf("/dev/mem").status.st_ino, statOf("/dev/i2c-1").status.st_ino);
    EXPECT_THAT(head.lines(sim::tcKinds::all()), IsEmpty())
        << "whoever looks at names does nothing";
}

TEST(Status, EveryFormAnswersAlike) {
    const auto head = sim::aVirtualHead().build();
    const ino_t inode = statOf("/dev/i2c-1").status.st_ino;
    struct stat status {};
    EXPECT_EQ(lstat("/dev/i2c-1", &status), 0);
    EXPECT_EQ(status.st_ino, inode);
    status = {};
    EXPECT_EQ(fstatat(AT_FDCWD, "/dev/i2c-1", &status, AT_SYMLINK_NOFOLLOW), 0);
    EXPECT_EQ(status.st_ino, inode);
    struct stat64 wide {};
    EXPECT_EQ(stat64("/dev/i2c-1", &wide), 0);
    EXPECT_EQ(wide.st_ino, inode);
    EXPECT_EQ(wide.st_mode, static_cast<mode_t>(S_IFCHR | 0600));
    wide = {};
    EXPECT_EQ(lstat64("/dev/i2c-1", &wide), 0);
    EXPECT_EQ(wide.st_ino, inode);
    wide = {};
    EXPECT_EQ(fstatat64(AT_FDCWD, "/dev/i2c-1", &wide, 0), 0);
    EXPECT_EQ(wide.st_ino, inode);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/i2c-1"));
}

TEST(Status, WhatIsMissingIsMissing) {
    const auto head = sim::aVirtualHead()
                          .withoutSpiDevice()
                          .withGpioChip("/dev/gpiochip2")
                          .withoutI2cBus()
                          .build();
    for (const char* path :
         {"/dev/spidev1.0", "/dev/spidev7.7", "/dev/gpiochip0", "/dev/i2c-1", "/dev/memory"}) {
        EXPECT_EQ(statOf(path).error, ENOENT) << path;
        EXPECT_EQ(access(path, F_OK), -1) << path;
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(statOf("/dev/gpiochip2").result, 0);
}

// What refuses to open is there all the same.
TEST(Status, AFileThatDoesNotOpenIsThere) {
    const auto head = sim::aVirtualHead().withMemOpenFailing(EACCES).build();
    EXPECT_EQ(statOf("/dev/mem").result, 0);
    EXPECT_EQ(open("/dev/mem", O_RDWR), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(Status, MayBeReadAndWrittenButNotExecuted) {
    const auto head = sim::aVirtualHead().build();
    for (const tsFile& file : kFiles) {
        EXPECT_EQ(access(file.path, R_OK | W_OK), 0);
        EXPECT_EQ(faccessat(AT_FDCWD, file.path, R_OK | W_OK, 0), 0);
        EXPECT_EQ(access(file.path, X_OK), -1) << "not even by root";
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(access(file.path, 8), -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

// The machine's own files answer for themselves: of a real character device the same.
TEST(Status, OtherFilesAreTheMachines) {
    const auto head = sim::aVirtualHead().build();
    EXPECT_EQ(major(statOf("/dev/null").status.st_rdev), 1U);
    EXPECT_EQ(minor(statOf("/dev/null").status.st_rdev), 3U);
    EXPECT_EQ(access("/dev/null", R_OK | W_OK), 0);
    EXPECT_EQ(access("/dev/null", X_OK), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(access("/dev/null", 8), -1);
    EXPECT_EQ(errno, EINVAL);
    struct stat status {};
    EXPECT_EQ(lstat("/", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    struct stat64 wide {};
    EXPECT_EQ(fstatat64(AT_FDCWD, "/", &wide, 0), 0);
    EXPECT_TRUE(S_ISDIR(wide.st_mode));
}

} // namespace
