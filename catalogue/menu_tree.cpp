#include "catalogue/menu_tree.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "config/config_buffer.h"
#include "config/multi_section_config_file.h"
#include "shell/state.h"

namespace {

constexpr const char* MENU_TREE_PATH = "/etc/menutree.conf";

// Pages that lead through several parts and are no part themselves.
constexpr std::array<std::string_view, 3> NEVER_OFFERED = {"lcrwizard", "isdnwizard",
                                                           "isdnsignaling"};

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

bool is_offered(const std::string& name) {
    return std::find(NEVER_OFFERED.begin(), NEVER_OFFERED.end(), name) == NEVER_OFFERED.end();
}

// What stands between the first and the last double quote. A lone quote opens a text that reaches
// to the end; a title without quotes is no caption.
std::string_view unquoted_caption(std::string_view title) {
    const std::size_t first = title.find('"');
    if (first == std::string_view::npos) {
        return {};
    }
    const std::size_t last = title.rfind('"');
    const std::size_t length = first == last ? std::string_view::npos : last - first - 1;
    const std::string_view caption = title.substr(first + 1, length);
    return caption.substr(0, caption.find('\0'));
}

void add_menu_item(const MultiSectionConfigFile& menu) {
    const std::string acl = menu.GetSectionEntry("ACL");
    if (acl == ConfigBuffer::ENTRY_NOT_FOUND || !contains(acl, "auto")) {
        return;
    }
    std::string name = menu_item_name(menu.GetHeaderEntry());
    if (!is_offered(name)) {
        return;
    }
    const std::string title = menu.GetSectionEntry("CAP");
    const std::string_view caption = unquoted_caption(title);
    Catalogue& catalogue = contains(acl, "extension") ? _gExtensionConfParts : _gAdminConParts;
    std::string shown(caption.empty() ? name : caption);
    catalogue.try_emplace(std::move(name), std::move(shown));
}

}  // namespace

void load_menu_tree() {
    MultiSectionConfigFile menu(MENU_TREE_PATH, false, false, true);
    menu.ChangeSectionSyntax("ITEM", "{\n", "}\n");
    menu.Restart();
    while (menu.GotoNextSection() != 0) {
        add_menu_item(menu);
    }
}

std::string menu_item_name(const std::string& header) {
    const std::string_view path = std::string_view(header).substr(0, header.find(".cgi"));
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}
