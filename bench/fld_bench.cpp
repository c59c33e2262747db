// The driver of the measurements; what it measures is put together by bench.py.
#include "measure.h"
#include "measure_dataset.h"
#include "write_file.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>

namespace
{

using nlohmann::json;

struct Options {
    std::string file;
    std::string other_file;
    std::string library = FLD_READER_PATH;
    FileForm form;
    bool with_fortran = false;
};

// Facts stand beside the file, for the commands that read it.
std::string facts_path(const std::string& file)
{
    return file + ".json";
}

void write(const Options& options)
{
    const FileFacts facts = write_fld_file(options.file, options.form);
    const json text = {{"bytes", facts.bytes},           {"records", facts.records},
                       {"nodes", facts.nodes},           {"grid_nodes", facts.grid_nodes},
                       {"grid_cells", facts.grid_cells}, {"faces", facts.faces},
                       {"big", options.form.big_endian}};
    std::ofstream(facts_path(options.file)) << text << '\n';
}

json read_facts(const Options& options, FileFacts* facts)
{
    json text = json::parse(std::ifstream(facts_path(options.file)));
    text.at("bytes").get_to(facts->bytes);
    text.at("records").get_to(facts->records);
    text.at("nodes").get_to(facts->nodes);
    text.at("grid_nodes").get_to(facts->grid_nodes);
    text.at("grid_cells").get_to(facts->grid_cells);
    text.at("faces").get_to(facts->faces);
    return text;
}

void measure(const Options& options)
{
    FileFacts facts;
    const bool big = read_facts(options, &facts).at("big").get<bool>();
    const Seconds s = measure_file(options.library, options.file, facts, options.with_fortran, big);
    const json text = {{"r0", s.plain_read},       {"open", s.open},
                       {"data", s.data},           {"nodes", s.nodes},
                       {"surfaces", s.surfaces},   {"elements", s.elements},
                       {"variables", s.variables}, {"fortran", s.fortran}};
    puts(text.dump().c_str());
}

void measure_host(const Options& options)
{
    FileFacts facts;
    read_facts(options, &facts);
    const Seconds bare = measure_file(options.library, options.file, facts, false, false);
    const DatasetSeconds s = measure_dataset(options.file, facts);
    const json text = {{"r0", bare.plain_read},
                       {"data", bare.data},
                       {"blocks", s.blocks},
                       {"functions", s.functions},
                       {"one_variable", s.one_variable},
                       {"plain_variable", s.plain_variable}};
    puts(text.dump().c_str());
}

void measure_turns(const Options& options)
{
    const SwitchSeconds s = measure_switch(options.file, options.other_file);
    const json text = {{"open", s.open}, {"turn", s.turn}, {"list", s.list}};
    puts(text.dump().c_str());
}

void peak(const Options& options)
{
    FileFacts facts;
    read_facts(options, &facts);
    printf("%lld\n", static_cast<long long>(measure_peak(options.library, options.file, facts)));
}

void add_write_command(CLI::App& app, Options& options)
{
    FileForm& form = options.form;
    CLI::App* const command = app.add_subcommand("write", "write a file to measure with");
    command->add_option("file", options.file)->required();
    command->add_option("--nodes", form.nodes, "of all grids, about")->capture_default_str();
    command->add_option("--grids", form.grids);
    command->add_option("--scalars", form.scalars)->capture_default_str();
    command->add_option("--values-per-record", form.values_per_record);
    command->add_option("--subrecord", form.subrecord, "bytes, a multiple of 8");
    command->add_option("--faces", form.faces, "that are no walls")->capture_default_str();
    command->add_option("--wall-faces", form.wall_faces);
    command->add_flag("--vector", form.vector);
    command->add_flag("--cylindrical", form.cylindrical);
    command->add_flag("--big-endian", form.big_endian);
    command->add_flag("--doubles", form.doubles);
    command->add_flag("!--no-cells", form.cells);
    command->add_flag("--results", form.results, "no mesh");
    command->callback([&] { write(options); });
}

void add_reading_commands(CLI::App& app, Options& options)
{
    CLI::App* const measuring = app.add_subcommand("measure", "seconds of each step");
    measuring->add_option("file", options.file)->required();
    measuring->add_option("--library", options.library);
    measuring->add_flag("--fortran", options.with_fortran, "the Fortran runtime as well");
    measuring->callback([&] { measure(options); });

    CLI::App* const host = app.add_subcommand("dataset", "seconds of the host library");
    host->add_option("file", options.file)->required();
    host->add_option("--library", options.library);
    host->callback([&] { measure_host(options); });

    CLI::App* const turns = app.add_subcommand("switch", "seconds from one dataset to another");
    turns->add_option("file", options.file)->required();
    turns->add_option("other", options.other_file)->required();
    turns->callback([&] { measure_turns(options); });

    CLI::App* const peaking = app.add_subcommand("peak", "bytes that the library takes");
    peaking->add_option("file", options.file)->required();
    peaking->add_option("--library", options.library);
    peaking->callback([&] { peak(options); });

    CLI::App* const plain = app.add_subcommand("plain", "read the file, nothing else");
    plain->add_option("file", options.file)->required();
    plain->callback([&] { read_into_fresh_memory(options.file); });
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("Measures the reader of FLD files.");
    app.require_subcommand(1);
    Options options;
    add_write_command(app, options);
    add_reading_commands(app, options);
    CLI11_PARSE(app, argc, argv);
    return 0;
} catch (const std::exception& failure) {
    fprintf(stderr, "fld_bench: %s\n", failure.what());
    return 1;
}
