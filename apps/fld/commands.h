// The commands of the program, one file each. They report on standard output, as text or as a JSON
// document, and give the exit status.
#pragma once

#include "compare.h"
#include "report.h"

#include <string>
#include <vector>

namespace fld_host
{

// Exit statuses; those of "fld diff" are its own.
constexpr int DONE = 0;
constexpr int FAILURE = 1; // a file could not be read, or is not whole
constexpr int WRONG_USAGE = 2;
constexpr int DIFFERENT = 1;
constexpr int UNREADABLE = 3;

struct InfoChoice {
    std::vector<int> grids;             // from 1; none: all
    std::vector<std::string> variables; // by name or key; none: all
};
int run_info(const Request& request, const std::vector<std::string>& files,
             const InfoChoice& choice);
int run_list(const Request& request, const std::vector<std::string>& files);
int run_sections(const Request& request, const std::vector<std::string>& files);
int run_check(const Request& request, const std::vector<std::string>& files);
int run_series(const Request& request, const std::vector<std::string>& files);
// Until the user stops it.
int follow_series(const Request& request, const std::string& file);
// `whole_series`: every step of one against the step of the same number of the other.
int run_diff(const Request& request, const std::string& a, const std::string& b,
             const Tolerances& tolerances, bool whole_series);
int run_salvage(const Request& request, const std::string& file, const std::string& out);

} // namespace fld_host
