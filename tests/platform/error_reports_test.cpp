#include "platform/support/error_reports.h"

#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

#include "tests/platform/captured.h"

TEST(ErrorReports, NameDeviceOperationTextAndNumber) {
    platform::tcErrorReports reports("tcSPIDevice");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/spidev1.0", "SPI_IOC_MESSAGE", EIO); }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_MESSAGE: Input/output error (errno 5)\n");
}

TEST(ErrorReports, ComeOnceForDeviceOperationAndErrno) {
    platform::tcErrorReports reports("tcX");
    EXPECT_EQ(stderrOf([&] {
                  for (int i = 0; i < 3; ++i)
                      reports.report("/dev/x", "open", EACCES);
              }),
              "tcX: /dev/x: open: Permission denied (errno 13)\n");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/x", "open", ENOENT); }),
              "tcX: /dev/x: open: No such file or directory (errno 2)\n");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/x", "read", EACCES); }),
              "tcX: /dev/x: read: Permission denied (errno 13)\n");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/y", "open", EACCES); }),
              "tcX: /dev/y: open: Permission denied (errno 13)\n");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/x", "open", EACCES); }), "");
}

TEST(ErrorReports, KnowsNoTextForAnUnknownErrno) {
    platform::tcErrorReports reports("tcX");
    EXPECT_EQ(stderrOf([&] { reports.report("/dev/x", "open", 4711); }),
              "tcX: /dev/x: open: Unknown error 4711 (errno 4711)\n");
}

TEST(ErrorReports, ComeOnceFromSeveralThreads) {
    platform::tcErrorReports reports("tcX");
    EXPECT_EQ(stderrOf([&] {
                  const auto work = [&] {
                      for (int i = 0; i < 100; ++i)
                          reports.report("/dev/x", "open", ENODEV);
                  };
                  std::thread other(work);
                  work();
                  other.join();
              }),
              "tcX: /dev/x: open: No such device (errno 19)\n");
}
