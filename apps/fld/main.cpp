// The program "fld": shows what FLD files hold.

#include "commands.h"
#include "output.h"
#include "paths.h"
#include "terminal.h"
#include "ui/util/utf8wrap.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <new>
#include <optional>

using namespace fld_host;

struct Options {
    std::vector<std::string> files;
    std::string file, other;
    std::string reader;
    std::string library;
    InfoChoice info;
    Tolerances tolerances;
    std::string absolute, relative;     // of "diff"
    std::vector<std::string> variables; // of "diff": NAME, or NAME=ABSOLUTE[,RELATIVE]
    bool follow = false;
    bool whole_series = false;
    bool json = false;
};

// ---- the commands ----

static constexpr const char* EXAMPLES = R"(
Examples:
  fld list run_*.fld                      a line for each file
  fld info run_0120.fld --variable PRES   the pressure alone
  fld check run_*.fld && echo all whole
  fld salvage broken.fld saved.fld        what can still be read of a file
  fld diff a.fld b.fld --relative 1e-5    exit status 0: equal within 0.001 %
  fld series --follow run_0001.fld        new steps of a running solver

Exit status: 0 done; 1 a file could not be read, or is not whole; 2 wrong usage.
"fld diff": 0 equal, 1 different, 2 wrong usage, 3 a file could not be read.
"fld help COMMAND" tells more.)";

static CLI::App* add_command(CLI::App& app, const char* name, const char* description,
                             Options& options)
{
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_flag("--json", options.json, "Print JSON, as docs/json.md describes it");
    command->add_option("--reader", options.reader,
                        "The reader to use, by its name, such as \"SC/Tetra [Direct Reader]\"");
    command->add_option("--library", options.library,
                        "A reader library to use in place of the reader in this program");
    return command;
}

static CLI::App* add_files_command(CLI::App& app, const char* name, const char* description,
                                   Options& options)
{
    CLI::App* const command = add_command(app, name, description, options);
    command->add_option("FILE", options.files, "The files")->required();
    return command;
}

static void add_commands(CLI::App& app, Options& options)
{
    CLI::App* const info =
        add_files_command(app, "info", "Describe the grids and variables of files", options);
    info->add_option("--grid", options.info.grids,
                     "Only this grid, counted from 1; may be repeated")
        ->allow_extra_args(false);
    info->add_option("--variable", options.info.variables,
                     "Only this variable, by its name or key; may be repeated")
        ->allow_extra_args(false);
    add_files_command(app, "list", "A line for each file, without reading a grid", options);
    add_files_command(app, "sections", "What stands where in files", options);
    add_files_command(app, "check", "Tell whether files are whole, and where they are not",
                      options);
    CLI::App* const series =
        add_files_command(app, "series", "List the time series that files are part of", options);
    series->add_flag("--follow", options.follow,
                     "Print each step of a running solver when it is complete, until Ctrl-C");
    CLI::App* const diff =
        add_command(app, "diff", "Tell what differs between two files, or two series", options);
    diff->add_option("A", options.file, "The first file")->required();
    diff->add_option("B", options.other, "The second file")->required();
    diff->add_option("--absolute", options.absolute, "Values that differ by no more are equal");
    diff->add_option("--relative", options.relative,
                     "The same, as a part of the larger of the two");
    diff->add_option("--variable", options.variables,
                     "Only this variable, by its name or key; with =ABSOLUTE or "
                     "=ABSOLUTE,RELATIVE instead: other tolerances for it; may be repeated")
        ->allow_extra_args(false);
    diff->add_flag("--series", options.whole_series,
                   "Compare the series that the two files are part of, step by step");
    diff->footer(
        "Meshes are compared too. Times and coordinates are to be equal, unless\n"
        "--variable time=... and --variable coordinates=... say otherwise. Undefined is\n"
        "equal to undefined, NaN to NaN. Exit status: 0 equal, 1 different, 2 wrong usage,\n"
        "3 a file could not be read.");
    series->footer("Only the start of each file is looked at; \"fld check\" looks at all.");
    CLI::App* const salvage =
        add_command(app, "salvage", "Write what can still be read of a file to a new one", options);
    salvage->add_option("FILE", options.file, "The damaged file")->required();
    salvage->add_option("OUT", options.other, "The new file, which must not be there")->required();
    salvage->footer(
        "OUT is the longest start of FILE that can be read whole once it is closed; a grid\n"
        "that lacks its nodes, materials or elements is left out. It is read back before\n"
        "it gets its name.");
}

static int run(const std::string& command, const Options& options, const Request& request)
{
    if (command == "info") return run_info(request, options.files, options.info);
    if (command == "list") return run_list(request, options.files);
    if (command == "sections") return run_sections(request, options.files);
    if (command == "check") return run_check(request, options.files);
    if (command == "series") {
        return options.follow ? follow_series(request, options.files.front())
                              : run_series(request, options.files);
    }
    if (command == "salvage") return run_salvage(request, options.file, options.other);
    return run_diff(request, options.file, options.other, options.tolerances, options.whole_series);
}

// ---- usage ----

static int wrong_usage(const std::string& what, const std::string& help)
{
    complain(what + " (see " + help + ")");
    return WRONG_USAGE;
}

// How many letters one must change, add or leave out to make one word of the other.
static size_t distance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

static CLI::App* find_command(CLI::App& app, const std::string& name)
{
    for (CLI::App* command : app.get_subcommands({})) {
        if (command->get_name() == name) return command;
    }
    return nullptr;
}

static int unknown_command(CLI::App& app, const std::string& name)
{
    std::string nearest;
    size_t least = SIZE_MAX;
    for (const CLI::App* command : app.get_subcommands({})) {
        const size_t changes = distance(name, command->get_name());
        if (changes < least) nearest = command->get_name();
        least = std::min(least, changes);
    }
    return wrong_usage("unknown command \"" + name + "\"; did you mean \"" + nearest + "\"?",
                       "fld help");
}

static int help(CLI::App& app, const std::vector<std::string>& words)
{
    if (words.size() > 2) return wrong_usage("help takes one command", "fld help");
    if (words.size() == 1) {
        std::cout << app.help();
        return DONE;
    }
    CLI::App* const command = find_command(app, words[1]);
    if (!command) return unknown_command(app, words[1]);
    std::cout << command->help("fld");
    return DONE;
}

// A file whose name begins with a dash, which is taken for an option.
static std::string dashed_file(const std::vector<std::string>& words)
{
    utf8wrap::FileStatus status{};
    for (const std::string& word : words) {
        if (word.starts_with('-') && utf8wrap::_stat64(word.c_str(), &status) == 0) return word;
    }
    return "";
}

// A number that is a tolerance and nothing else; none otherwise.
static std::optional<double> tolerance_of(const std::string& text)
{
    if (text.empty() || text.find_first_not_of("0123456789.+-eE") != std::string::npos) return {};
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !(value >= 0) || !std::isfinite(value)) return {};
    return value;
}

// "NAME=ABSOLUTE" or "NAME=ABSOLUTE,RELATIVE"; what is neither is a name.
static void take_variable(const std::string& text, Tolerances& tolerances)
{
    const size_t equals = std::min(text.rfind('='), text.size());
    const std::string numbers = equals < text.size() ? text.substr(equals + 1) : "";
    const size_t comma = std::min(numbers.find(','), numbers.size());
    const auto absolute = tolerance_of(numbers.substr(0, comma));
    const auto relative =
        comma < numbers.size() ? tolerance_of(numbers.substr(comma + 1)) : std::optional(0.0);
    if (absolute && relative)
        tolerances.variables[text.substr(0, equals)] = {*absolute, *relative};
    else
        tolerances.chosen.push_back(text);
}

static void take_tolerances(Options& options)
{
    const auto take = [](const char* name, const std::string& text) {
        const auto value = text.empty() ? std::optional(0.0) : tolerance_of(text);
        if (value) return *value;
        throw CLI::ValidationError(name, "\"" + text + "\" is no tolerance");
    };
    options.tolerances.all = {take("--absolute", options.absolute),
                              take("--relative", options.relative)};
    for (const std::string& text : options.variables) take_variable(text, options.tolerances);
}

// Parses the arguments. True when a command is to be run; otherwise `status` is the program's.
static bool parse(CLI::App& app, int argc, char** argv, Options& options, int* status)
{
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const std::string first = words.empty() ? "" : words[0];
    if (first == "help") {
        *status = help(app, words);
        return false;
    }
    const bool is_command = find_command(app, first) != nullptr;
    if (!first.empty() && first[0] != '-' && !is_command) {
        *status = unknown_command(app, first);
        return false;
    }
    try {
        app.parse(argc, argv);
        take_tolerances(options);
        if (options.follow && options.files.size() > 1) {
            throw CLI::ValidationError("--follow", "one file only");
        }
        return true;
    } catch (const CLI::ParseError& problem) {
        if (problem.get_exit_code() == 0) {
            *status = app.exit(problem);
            return false;
        }
        std::string what = problem.what();
        std::replace(what.begin(), what.end(), '\n', ' ');
        const std::string dashed = dashed_file(words);
        if (!dashed.empty()) what += "; for the file write ./" + dashed;
        *status = wrong_usage(what, is_command ? "fld help " + first : "fld help");
        return false;
    }
}

// ---- the program ----

// A name without a directory is a file here, not one of the system's libraries.
static std::string library_path(const std::string& name)
{
    return directory_of(name).empty() ? "./" + name : name;
}

static int run_request(const CLI::App& app, const Options& options, Request& request)
{
    request.reader =
        options.library.empty() ? Reader::linked() : Reader::load(library_path(options.library));
    if (!options.reader.empty()) {
        try {
            request.reader->choose(options.reader);
        } catch (const Error& failure) {
            return wrong_usage(failure.what(), "fld help " + request.command);
        }
    }
    request.reader_name = options.reader;
    return run(app.get_subcommands().front()->get_name(), options, request);
}

static int run_command(const CLI::App& app, const Options& options)
{
    Request request;
    request.command = app.get_subcommands().front()->get_name();
    request.json = options.json;
    const int failure_status = request.command == "diff" ? UNREADABLE : FAILURE;
    if (!fill_standard_files()) {
        complain("standard output is closed");
        return failure_status;
    }
    request.out = claim_standard_output();
    int status = failure_status;
    const auto fail = [&](const Error& failure) {
        Report report(request);
        (void)report.fail(failure);
        report.finish();
    };
    try {
        status = run_request(app, options, request);
    } catch (const Error& failure) {
        fail(failure);
    } catch (const std::bad_alloc&) {
        fail(Error(Error::Kind::no_memory, "", "not enough memory"));
    }
    const bool written = ferror(request.out) == 0;
    if (fclose(request.out) == 0 && written) return status;
    complain("standard output: cannot be written");
    return failure_status;
}

int fld_host::run_program(int argc, char** argv)
try {
    Options options;
    CLI::App app("Shows what FLD result files hold.", "fld");
    app.set_version_flag("--version", "fld " FLD_VERSION);
    app.require_subcommand(1);
    app.allow_windows_style_options(false); // a path may begin with a slash on every system
    app.footer(EXAMPLES);
    add_commands(app, options);
    int status = DONE;
    if (parse(app, argc, argv, options, &status)) return run_command(app, options);
    if (std::cout.flush()) return status;
    complain("standard output: cannot be written");
    return FAILURE;
} catch (const std::exception& failure) {
    complain(failure.what());
    return FAILURE;
}
