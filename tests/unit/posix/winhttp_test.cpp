#include <gtest/gtest.h>

#include "platform/win32.h"

namespace {

TEST(WinHttp, CannotBeOpened) {
    SetLastError(0);
    EXPECT_EQ(WinHttpOpen(u"agent", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0),
              nullptr);
    EXPECT_EQ(GetLastError(), 120U);
}

}  // namespace
