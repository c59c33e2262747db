// The program "fld": shows what FLD files hold, through the reader library.

#include "check.h"
#include "info.h"
#include "output.h"
#include "series_command.h"

#include <CLI/CLI.hpp>
#include <iostream>

using namespace fld_host;

static constexpr int FAILURE = 1;
static constexpr int WRONG_USAGE = 2;

struct Options {
    std::vector<std::string> files;
    std::string series_file;
    std::string reader;
    std::string library;
    bool json = false;
};

static void add_common_options(CLI::App& command, Options& options)
{
    command.add_flag("--json", options.json, "Print JSON");
    command.add_option("--reader", options.reader,
                       "The reader to use, by its name, such as \"SC/Tetra [Direct Reader]\"");
    command.add_option("--library", options.library,
                       "A reader library to use in place of the reader in this program");
}

static void add_files_command(CLI::App& app, const char* name, const char* description,
                              Options& options)
{
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("FILE", options.files, "The files")->required();
    add_common_options(*command, options);
}

static int run(const CLI::App& command, const Options& options, FILE* out)
{
    const std::shared_ptr<Reader> reader =
        options.library.empty() ? Reader::linked() : Reader::load(options.library);
    if (!options.reader.empty()) {
        try {
            reader->choose(options.reader);
        } catch (const Error& failure) {
            complain(failure.what());
            return WRONG_USAGE;
        }
    }
    const std::string name = options.reader.empty() ? reader->names().front() : options.reader;
    const std::string& what = command.get_name();
    const bool done = what == "series" ? run_series(reader, options.series_file, options.json, out)
                      : what == "info" ? run_info(reader, name, options.files, options.json, out)
                                       : run_check(reader, options.files, options.json, out);
    return done ? 0 : FAILURE;
}

int main(int argc, char** argv)
try {
    Options options;
    CLI::App app("Shows what FLD result files hold.", "fld");
    app.set_version_flag("--version", "fld " FLD_VERSION);
    app.require_subcommand(1);
    add_files_command(app, "info", "Describe the grids and variables of files", options);
    add_files_command(app, "check", "Tell whether files are whole, and where they are not",
                      options);
    CLI::App* series = app.add_subcommand("series", "List the time series that a file is part of");
    series->add_option("FILE", options.series_file, "One file of the series")->required();
    add_common_options(*series, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        if (problem.get_exit_code() == 0) return app.exit(problem);
        std::cerr << "fld: " << problem.what() << " (see fld --help)\n";
        return WRONG_USAGE;
    }

    FILE* out = claim_standard_output();
    const int status = run(*app.get_subcommands().front(), options, out);
    const bool written = ferror(out) == 0;
    if (fclose(out) == 0 && written) return status;
    report("standard output", "cannot be written");
    return FAILURE;
} catch (const std::exception& failure) {
    std::cerr << "fld: " << failure.what() << '\n';
    return FAILURE;
}
