// "fld list": a line for each file.
#include "commands.h"

#include "output.h"
#include "paths.h"

#include <optional>

namespace fld_host
{

static int64_t node_total(const Contents& contents)
{
    int64_t total = 0;
    for (const int32_t nodes : contents.node_counts) total += nodes;
    return total;
}

static nlohmann::json file_json(const std::string& file, const Contents& contents, float time)
{
    nlohmann::json result = {{"time", json_real(time)},
                             {"grids", contents.node_counts.size()},
                             {"nodes", node_total(contents)},
                             {"variables", nlohmann::json::array()},
                             {"results_only", contents.results_only}};
    put_file(result, "file", file);
    if (!contents.grid_file.empty()) put_file(result, "grid_file", contents.grid_file);
    for (const Variable& variable : contents.variables) {
        result["variables"].push_back(
            {{"name", variable.name}, {"key", variable.key}, {"components", variable.components}});
    }
    return result;
}

int run_list(const Request& request, const std::vector<std::string>& files)
{
    Report report(request);
    Table table({"file", "time", "grids", "nodes", "variables", "grid file"}, true);
    size_t number = 0;
    size_t listed = 0;
    for (const std::string& file : files) {
        Progress progress(name_of(file), ++number, files.size());
        (void)progress.show("opening");
        try {
            const Dataset dataset(request.reader, file);
            const float time = request.reader->time(file);
            const Contents& contents = dataset.contents();
            const std::string grid_file = name_of(contents.grid_file);
            ++listed;
            if (request.json)
                report.add(file_json(file, contents, time));
            else
                table.add({printable(file), real_text(time),
                           grouped(std::ssize(contents.node_counts)), grouped(node_total(contents)),
                           grouped(std::ssize(contents.variables)),
                           !contents.results_only ? "itself"
                           : grid_file.empty()    ? "an earlier one"
                                                  : printable(grid_file)});
            report.hear();
        } catch (const Error& failure) {
            (void)report.fail(failure);
        }
    }
    clear_progress();
    if (!request.json && listed > 0) table.print(request.out, "");
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

} // namespace fld_host
