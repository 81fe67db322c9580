#include "catalogue/menu_tree.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

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

// Leaves what stands between the first and the last double quote. A lone quote opens a text that
// reaches to the end; a title without quotes is no caption.
void unquote(std::string& title) {
    const std::size_t first = title.find('"');
    if (first == std::string::npos) {
        title.clear();
        return;
    }
    const std::size_t last = title.rfind('"');
    if (last != first) {
        title.resize(last);
    }
    title.erase(0, first + 1);
    title.resize(std::min(title.find('\0'), title.size()));
}

// What an item offers.
struct Part {
    std::string name;
    std::string caption;
};

void add_menu_item(const MultiSectionConfigFile& menu, std::vector<Part>& general,
                   std::vector<Part>& extension) {
    const std::string acl = menu.GetSectionEntry("ACL");
    if (acl == ConfigBuffer::ENTRY_NOT_FOUND || !contains(acl, "auto")) {
        return;
    }
    Part part = {menu_item_name(menu.GetHeaderEntry()), menu.GetSectionEntry("CAP")};
    if (!is_offered(part.name)) {
        return;
    }
    unquote(part.caption);
    if (part.caption.empty()) {
        part.caption = part.name;
    }
    (contains(acl, "extension") ? extension : general).push_back(std::move(part));
}

// In the order of their names they need no search for their places in a catalogue, and those that
// are listed one after the other are neighbours in memory. Of parts of one name the first stays.
void fill(Catalogue& catalogue, std::vector<Part>& parts) {
    std::vector<Part*> order;
    order.reserve(parts.size());
    for (Part& part : parts) {
        order.push_back(&part);
    }
    std::sort(order.begin(), order.end(), [](const Part* left, const Part* right) {
        const int difference = left->name.compare(right->name);
        return difference != 0 ? difference < 0 : left < right;
    });
    for (Part* part : order) {
        catalogue.try_emplace(catalogue.end(), std::move(part->name), std::move(part->caption));
    }
}

}  // namespace

void load_menu_tree() {
    MultiSectionConfigFile menu(MENU_TREE_PATH, false, false, true);
    menu.ChangeSectionSyntax("ITEM", "{\n", "}\n");
    menu.Restart();
    std::vector<Part> general;
    std::vector<Part> extension;
    while (menu.GotoNextSection() != 0) {
        add_menu_item(menu, general, extension);
    }
    fill(_gAdminConParts, general);
    fill(_gExtensionConfParts, extension);
}

std::string menu_item_name(const std::string& header) {
    const std::string_view path = std::string_view(header).substr(0, header.find(".cgi"));
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}
