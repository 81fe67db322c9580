#include "catalogue/menu_tree.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "config/config_buffer.h"
#include "config/multi_section_config_file.h"
#include "console/state.h"

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

// The first bytes of a name as numbers, which are in the order of the names. A name that ends
// before is taken to go on with NUL bytes.
using NameStart = std::pair<std::uint64_t, std::uint64_t>;

std::uint64_t number_of(std::string_view bytes) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i) {
        number = number << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    return number;
}

NameStart start_of(std::string_view name) {
    constexpr std::size_t half = sizeof(std::uint64_t);
    return {number_of(name), name.size() > half ? number_of(name.substr(half)) : 0};
}

// A part in the order of names. The part itself is somewhere else in memory, so that it is looked
// at only for names that start alike.
struct Place {
    NameStart start;
    Part* part;
};

// Of parts of one name the one that was found first comes first.
bool operator<(const Place& left, const Place& right) {
    if (left.start != right.start) {
        return left.start < right.start;
    }
    const int difference = left.part->name.compare(right.part->name);
    return difference != 0 ? difference < 0 : left.part < right.part;
}

constexpr std::size_t LEAD = 8;  // parts that are asked for before their turn

// In the order of their names they need no search for their places in a catalogue, and those that
// are listed one after the other are neighbours in memory. Of parts of one name the first stays.
void fill(Catalogue& catalogue, std::vector<Part>& parts) {
    std::vector<Place> order;
    order.reserve(parts.size());
    for (Part& part : parts) {
        order.push_back({start_of(part.name), &part});
    }
    std::sort(order.begin(), order.end());
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i + LEAD < order.size()) {
            __builtin_prefetch(order[i + LEAD].part);
        }
        Part& part = *order[i].part;
        catalogue.try_emplace(catalogue.end(), std::move(part.name), std::move(part.caption));
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
