// The catalogues from a menu tree. Input: the file. Sections and entries come from the product's
// reader, which has its own target; names and captions are computed a second time here.

#include "catalogue/menu_tree.h"

#include <vector>

#include "console/state.h"
#include "tests/fuzz/plain_reader.h"
#include "tests/fuzz/support.h"

namespace {

std::string plain_name(std::string header) {
    for (std::size_t i = 0; i + 4 <= header.size(); ++i) {
        if (header.compare(i, 4, ".cgi") == 0) {
            header.erase(i);
            break;
        }
    }
    std::string name;
    for (const char c : header) {
        if (c == '/') {
            name.clear();
        } else {
            name += c;
        }
    }
    return name;
}

std::string plain_caption(const std::string& title, const std::string& name) {
    std::vector<std::size_t> quotes;
    for (std::size_t i = 0; i < title.size(); ++i) {
        if (title[i] == '"') {
            quotes.push_back(i);
        }
    }
    std::string caption;
    if (!quotes.empty()) {
        const std::size_t end = quotes.size() > 1 ? quotes.back() : title.size();
        for (std::size_t i = quotes.front() + 1; i < end && title[i] != '\0'; ++i) {
            caption += title[i];
        }
    }
    return caption.empty() ? name : caption;
}

std::string listed(const Catalogue& catalogue) {
    std::string text;
    for (const auto& [name, caption] : catalogue) {
        text += name + "|" + caption + "\n";
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = input_text(data, size);
    require_equal(menu_item_name(text), plain_name(text), "name from any text");

    outside = Outside();
    outside.files["/etc/menutree.conf"] = text;
    _gAdminConParts.clear();
    _gExtensionConfParts.clear();
    load_menu_tree();

    Catalogue general;
    Catalogue extension;
    for (const PlainSection& item : plain_sections(text, "ITEM")) {
        const std::string acl = plain_value(item.entries, "ACL");
        const std::string name = plain_name(item.header);
        if (acl.find("auto") == std::string::npos || name == "lcrwizard" || name == "isdnwizard" ||
            name == "isdnsignaling") {
            continue;
        }
        Catalogue& catalogue = acl.find("extension") != std::string::npos ? extension : general;
        catalogue.insert({name, plain_caption(plain_value(item.entries, "CAP"), name)});
    }
    require_equal(listed(_gAdminConParts), listed(general), "general parts");
    require_equal(listed(_gExtensionConfParts), listed(extension), "extension parts");
    return 0;
}
