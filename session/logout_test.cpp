#include "session/logout.h"

#include <cstdlib>
#include <map>
#include <string>

#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

class LogoutTest : public OutsideTest {};

TEST_F(LogoutTest, SendsNoQueryAndReadsNothing) {
    outside.client_output = "logged out\n";
    EXPECT_EQ(captured_output([] { EXPECT_EQ(admin_logout(), 0); }), "");
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request,
              (std::map<std::string, std::string>{
                  {"REQUEST_METHOD", "GET"},
                  {"PATH_INFO", "logout.cgi"},
                  {"REMOTE_ADDR", "CGI2FastCGI"},
                  {"CONTENT_TYPE", "application/x-www-form-urlencoded"}}));
    EXPECT_EQ(outside.closed_at, std::vector<long>{0});
}

TEST_F(LogoutTest, LeavesAnInheritedQueryAsItIs) {
    setenv("QUERY_STRING", "inherited", 1);
    admin_logout();
    EXPECT_STREQ(std::getenv("QUERY_STRING"), "inherited");
}

TEST_F(LogoutTest, ReportsNothingWhenTheClientCannotStart) {
    outside.client_can_start = false;
    EXPECT_EQ(captured_output([] { EXPECT_EQ(admin_logout(), 0); }), "");
}

}  // namespace
