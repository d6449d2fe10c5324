#include <gtest/gtest.h>

#include "platform/win32.h"

namespace {

TEST(Windows, AreNone) {
    int something = 0;
    EXPECT_EQ(IsWindow(nullptr), FALSE);
    EXPECT_EQ(IsWindow(&something), FALSE);
    EXPECT_EQ(GetForegroundWindow(), nullptr);
}

TEST(Windows, HaveNoClassName) {
    WCHAR name[4] = {u'#', u'#', u'#', u'#'};
    SetLastError(0);
    EXPECT_EQ(GetClassNameW(GetForegroundWindow(), name, 4), 0);
    EXPECT_EQ(GetLastError(), 1400U);
    EXPECT_EQ(name[0], u'#');
}

}  // namespace
