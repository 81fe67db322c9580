#include "catalogue/list.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "console/state.h"
#include "console/text.h"

namespace {

constexpr std::string_view BEFORE_CAPTION = " (";
constexpr std::string_view BEHIND_CAPTION = ")\n";

char* put(std::string_view text, char* place) {
    return std::copy(text.begin(), text.end(), place);
}

// Goes before a listing. Long captions lie in memory as the menu tree has them; asking for one well
// before its turn saves waiting for it.
class Scout {
  public:
    explicit Scout(const Catalogue& catalogue) : place_(catalogue.begin()), end_(catalogue.end()) {
        for (int i = 0; i < LEAD; ++i) {
            go_on();
        }
    }
    void go_on() {
        if (place_ != end_) {
            __builtin_prefetch(place_->second.data());
            ++place_;
        }
    }

  private:
    static constexpr int LEAD = 8;  // parts
    Catalogue::const_iterator place_;
    Catalogue::const_iterator end_;
};

// Appending to the line piece by piece would cost as much as all the rest of a long listing.
void print_parts(const Catalogue& catalogue) {
    Scout scout(catalogue);
    std::string line;
    for (const auto& [name, caption] : catalogue) {
        scout.go_on();
        line.resize(name.size() + BEFORE_CAPTION.size() + caption.size() + BEHIND_CAPTION.size());
        char* place = put(name, line.data());
        place = put(BEFORE_CAPTION, place);
        place = put(caption, place);
        put(BEHIND_CAPTION, place);
        print_now(line);
    }
}

}  // namespace

int handle_list(char* /*argument*/) noexcept {
    print_now("\n*** General configuration parts ***\n\n");
    print_parts(_gAdminConParts);
    print_now("\n*** Extension configuration parts ***\n\n");
    print_parts(_gExtensionConfParts);
    print_now("\n");
    return 0;
}
