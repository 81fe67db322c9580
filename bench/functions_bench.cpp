// Times of the functions that every byte of a file, an answer or a listing goes through, over sizes
// 16-fold apart, with the order of growth that fits them. Runs on a device, whose menu tree it
// replaces, with standard output discarded.

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "catalogue/extension_database.h"
#include "catalogue/list.h"
#include "catalogue/menu_tree.h"
#include "cgi/legible_configuration.h"
#include "config/config_file.h"
#include "config/multi_section_config_file.h"
#include "config/multi_section_file.h"
#include "console/state.h"
#include "save/save.h"

namespace {

constexpr const char* FILE_PATH = "/tmp/functions_bench";
constexpr const char* MENU_TREE_PATH = "/etc/menutree.conf";
constexpr int SMALLEST = 1 << 10;  // of lines, items, entries or records
constexpr int LARGEST = 1 << 18;
constexpr int FACTOR = 4;

std::string repeat(const std::string& text, std::int64_t count) {
    std::string result;
    for (std::int64_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

void write_file(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

std::string menu_tree(std::int64_t items) {
    std::string text;
    for (std::int64_t i = 0; i < items; ++i) {
        const std::string number = std::to_string(i);
        text += "ITEM /cgi-bin/part" + number + ".cgi {\n    ACL = auto,admin\n    CAP = \"Part " +
                number + "\"\n}\n";
    }
    return text;
}

void forget_parts() {
    _gAdminConParts.clear();
    _gExtensionConfParts.clear();
}

void read_absent_entry(benchmark::State& state) {
    write_file(FILE_PATH, repeat("some_key : some value\n", state.range(0)));
    for (auto round : state) {
        ConfigFile file(FILE_PATH, false, false);
        file.ChangeSyntax(':', '\n', '#');
        benchmark::DoNotOptimize(file.GetEntry("Version"));
    }
    state.SetComplexityN(state.range(0));
}

void read_sections(benchmark::State& state) {
    write_file(FILE_PATH, menu_tree(state.range(0)));
    for (auto round : state) {
        MultiSectionConfigFile file(FILE_PATH, false, false, true);
        file.ChangeSectionSyntax("ITEM", "{\n", "}\n");
        file.Restart();
        while (file.GotoNextSection() != 0) {
            benchmark::DoNotOptimize(file.GetSectionEntry("CAP"));
        }
    }
    state.SetComplexityN(state.range(0));
}

void read_entries(benchmark::State& state) {
    write_file(FILE_PATH,
               "section admin {\n" + repeat("    user_name = admin\n", state.range(0)) + "}\n");
    for (auto round : state) {
        Configuration::MultiSectionFile file(FILE_PATH, false, false, false, "section", "{\n",
                                             "}\n", "=", "#", nullptr);
        file.Restart();
        benchmark::DoNotOptimize(file.GotoSection("admin"));
        file.RestartSection();
        while (file.GotoSecNextEntry() != 0) {
        }
    }
    state.SetComplexityN(state.range(0));
}

void replace_marker(benchmark::State& state) {
    const std::string answer = repeat(std::string(96, 'x') + "#VAL", state.range(0));
    for (auto round : state) {
        state.PauseTiming();
        std::string text = answer;
        state.ResumeTiming();
        replace_all(text, "#VAL", "=", 0);
        benchmark::DoNotOptimize(text);
    }
    state.SetComplexityN(state.range(0));
}

void filter_summary(benchmark::State& state) {
    write_file(FILE_PATH, "VERSION=1.0\n" + repeat("sip.proxy=sip.example.net\n", state.range(0)));
    for (auto round : state) {
        print_without_version(FILE_PATH);
    }
    state.SetComplexityN(state.range(0));
}

void load_catalogue(benchmark::State& state) {
    write_file(MENU_TREE_PATH, menu_tree(state.range(0)));
    for (auto round : state) {
        load_menu_tree();
        state.PauseTiming();
        forget_parts();
        state.ResumeTiming();
    }
    state.SetComplexityN(state.range(0));
}

void print_catalogue(benchmark::State& state) {
    forget_parts();
    write_file(MENU_TREE_PATH, menu_tree(state.range(0)));
    load_menu_tree();
    std::string nothing;
    for (auto round : state) {
        handle_list(nothing.data());
    }
    forget_parts();
    state.SetComplexityN(state.range(0));
}

void look_up_extension(benchmark::State& state) {
    setenv("TARN_PATH", "/tmp/functions_bench_", 1);  // and "telephony/extensiondb" behind it
    std::filesystem::create_directories("/tmp/functions_bench_telephony");
    write_file("/tmp/functions_bench_telephony/extensiondb",
               "section paging {\n" + repeat("    name = 200100\n", state.range(0)) + "}\n");
    for (auto round : state) {
        benchmark::DoNotOptimize(extension_exists("999"));
    }
    state.SetComplexityN(state.range(0));
}

void over_sizes(benchmark::internal::Benchmark* bench) {
    bench->RangeMultiplier(FACTOR)->Range(SMALLEST, LARGEST)->Complexity();
}

BENCHMARK(read_absent_entry)->Apply(over_sizes);
BENCHMARK(read_sections)->Apply(over_sizes);
BENCHMARK(read_entries)->Apply(over_sizes);
BENCHMARK(replace_marker)->Apply(over_sizes);
BENCHMARK(filter_summary)->Apply(over_sizes);
BENCHMARK(load_catalogue)->Apply(over_sizes);
BENCHMARK(print_catalogue)->Apply(over_sizes);
BENCHMARK(look_up_extension)->Apply(over_sizes);

}  // namespace

int main(int count, char** arguments) {
    // Memory that is given back to the system costs anew when it is asked for again, and only large
    // sizes would pay for it.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
}
