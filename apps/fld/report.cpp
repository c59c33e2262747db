#include "report.h"

#include "check.h"
#include "output.h"

#include <map>
#include <sstream>
#include <vector>

namespace fld_host
{

static std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

nlohmann::json error_json(const Error& failure)
{
    nlohmann::json error = {{"what", failure.reason}, {"reader", lines_of(failure.reader_says)}};
    put_file(error, "file", failure.file);
    return error;
}

Report::Report(const Request& request) : request_(request) {}

// Whether an error says what a line says.
static bool says(const Error& error, const std::string& line)
{
    const bool names_file = line.ends_with(": " + error.file); // "Cannot open file: NAME"
    return names_file || std::string(error.what()).find(without_opening(line)) != std::string::npos;
}

void Report::pass_on_lines(const std::string& said, const Error* but) const
{
    std::vector<std::string> order;
    std::map<std::string, long long> times;
    for (const std::string& line : lines_of(said)) {
        if (but && says(*but, line)) continue;
        if (++times[line] == 1) order.push_back(line);
    }
    for (const std::string& line : order) {
        pass_on(times[line] == 1 ? line : line + " (" + grouped(times[line]) + " times)");
    }
}

void Report::hear()
{
    pass_on_lines(request_.reader->take_messages() + take_library_text(), nullptr);
}

Error Report::fail(const Error& failure, bool show)
{
    const std::string said =
        (request_.reader ? request_.reader->take_messages() : "") + take_library_text();
    Error error = failure;
    if (error.reader_says.empty()) error.reader_says = said;
    const std::vector<std::string> lines = lines_of(error.reader_says);
    if (!error.has_reason && !lines.empty() && request_.reader != Reader::linked()) {
        error = Error(error.kind, error.file,
                      error.what_fails + ": " + without_opening(lines.back()), error.reader_says);
    }
    error = with_reason(error);
    pass_on_lines(said, &error);
    if (show) complain(error.what());
    errors_.push_back(error_json(error));
    return error;
}

void Report::finish()
{
    if (!request_.json) return;
    print_json({{"command", request_.command},
                {"version", FLD_VERSION},
                {"results", results_},
                {"errors", errors_}},
               request_.out);
}

} // namespace fld_host
