#include "catalogue/menu_tree.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

TEST(MenuItemName, IsTheHeaderFromItsLastSlashToCgi) {
    const std::vector<std::pair<std::string, std::string>> headers = {
        {"/cgi-bin/voicemail.cgi", "voicemail"},
        {"/cgi-bin/ext_voicemail.cgi", "ext_voicemail"},
        {"admin/lcrwizard.cgi?step=1", "lcrwizard"},
        {"callforward", "callforward"},
        {"/cgi-bin/", ""},
        {"/", ""},
        {"", ""},
        {".cgi", ""},
        {"/a/.cgi", ""},
        {"a.cgi/b.cgi", "a"},
        {"x/a.cgi/b", "a"},
        {"a.cg", "a.cg"},
        {"a.CGI", "a.CGI"},
        {"a.b.cgi", "a.b"},
        {"a.cgi.cgi", "a"},
        {"//a//b", "b"},
        {"a b.cgi", "a b"},
        {"a\\b.cgi", "a\\b"},
    };
    for (const auto& [header, name] : headers) {
        EXPECT_EQ(menu_item_name(header), name) << header;
    }
}

}  // namespace
