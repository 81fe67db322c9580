#include "catalogue/menu_tree.h"

#include <algorithm>
#include <array>

#include "config/config_buffer.h"
#include "config/multi_section_config_file.h"
#include "console/state.h"

namespace {

constexpr const char* MENU_TREE_PATH = "/etc/menutree.conf";

// Wizards, which lead through several parts and are not parts themselves.
constexpr std::array NEVER_OFFERED = {"lcrwizard", "isdnwizard", "isdnsignaling"};

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// Returns the text between the first and the last double quote, up to its first NUL: after a lone
// quote, all that follows; without quotes, nothing.
std::string unquoted(const std::string& title) {
    const std::size_t first = title.find('"');
    if (first == std::string::npos) {
        return "";
    }
    const std::size_t last = title.rfind('"');
    const std::size_t length = last > first ? last - first - 1 : title.size();
    const std::string text = title.substr(first + 1, length);
    return text.substr(0, text.find('\0'));
}

// If items in a catalogue have the same name, the first wins.
void add_menu_item(const MultiSectionConfigFile& menu) {
    const std::string acl = menu.GetSectionEntry("ACL");
    if (acl == ConfigBuffer::ENTRY_NOT_FOUND || !contains(acl, "auto")) {
        return;
    }
    const std::string name = menu_item_name(menu.GetHeaderEntry());
    if (std::find(NEVER_OFFERED.begin(), NEVER_OFFERED.end(), name) != NEVER_OFFERED.end()) {
        return;
    }
    std::string caption = unquoted(menu.GetSectionEntry("CAP"));
    if (caption.empty()) {
        caption = name;
    }
    Catalogue& catalogue = contains(acl, "extension") ? _gExtensionConfParts : _gAdminConParts;
    catalogue.emplace(name, caption);
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
    const std::string path = header.substr(0, header.find(".cgi"));
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}
