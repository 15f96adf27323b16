// SPDX-License-Identifier: Apache-2.0
// The log's date text under a clock of the test's own: this program replaces time and localtime_r.
#include <libvxcore/vxlb_log.h>

#include <cstring>
#include <ctime>
#include <gtest/gtest.h>

namespace {

bool has_fake_clock;
time_t fake_now;
bool fails;
int conversions;
char *(*during_conversion)();

} // namespace

time_t time(time_t *out) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    const time_t now = has_fake_clock ? fake_now : ts.tv_sec;
    return out == nullptr ? now : *out = now;
}

struct tm *localtime_r(const time_t *when, struct tm *out) {
    conversions++;
    if (during_conversion != nullptr) {
        during_conversion();
    }
    return fails ? nullptr : gmtime_r(when, out);
}

struct VxlbLogDate : testing::Test {
    VxlbLogDate() { has_fake_clock = true; }
    ~VxlbLogDate() override { has_fake_clock = false; }
};

TEST_F(VxlbLogDate, ShowsTheYearModulo2000) {
    const struct {
        time_t when;
        const char *date;
    } cases[] = {
        {946684799, "12/31/1999 23:59:59"}, // before 2000 whole
        {946684800, "01/01/00 00:00:00"},   {1799999999, "01/15/27 07:59:59"},
        {4102444799, "12/31/99 23:59:59"},  {4102444800, "01/01/100 00:00:00"}, // 2100
    };
    for (const auto &c : cases) {
        fake_now = c.when;
        EXPECT_STREQ(c.date, get_cur_date_time());
    }
}

TEST_F(VxlbLogDate, SaysErrorWhenTheTimeCanNotBeConvertedAndRecovers) {
    fake_now = 1000;
    fails = true;
    EXPECT_STREQ("Error", get_cur_date_time());
    fails = false;
    EXPECT_STREQ("01/01/1970 00:16:40", get_cur_date_time());
}

TEST_F(VxlbLogDate, ConvertsOnceASecondAndAgainInAnotherZone) {
    fake_now = 2000;
    get_cur_date_time();
    conversions = 0;
    strcpy(get_cur_date_time(), "scribbled over");
    EXPECT_STREQ("01/01/1970 00:33:20", get_cur_date_time());
    EXPECT_EQ(0, conversions);
    timezone += 3600;
    get_cur_date_time();
    EXPECT_EQ(1, conversions);
    timezone -= 3600;
    daylight = !daylight;
    get_cur_date_time();
    EXPECT_EQ(2, conversions);
    daylight = !daylight;
    fake_now++;
    EXPECT_STREQ("01/01/1970 00:33:21", get_cur_date_time());
    EXPECT_EQ(3, conversions);
}

TEST_F(VxlbLogDate, AHandlerThatBreaksIntoAConversionStartsNoOther) {
    fake_now = 3000;
    conversions = 0;
    during_conversion = get_cur_date_time;
    EXPECT_STREQ("01/01/1970 00:50:00", get_cur_date_time());
    during_conversion = nullptr;
    EXPECT_EQ(1, conversions);
}
