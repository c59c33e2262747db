// What a command has to say: results as text at once, or as one JSON document in the end; what goes
// wrong on standard error, each reason once.
#pragma once

#include "dataset.h"
#include "json.h"

#include <cstdio>
#include <memory>
#include <string>

namespace fld_host
{

// What a command is asked for with every file.
struct Request {
    std::string command;
    std::shared_ptr<Reader> reader;
    std::string reader_name; // the one that was asked for; empty: any
    bool json = false;
    FILE* out = nullptr;
};

class Report
{
public:
    explicit Report(const Request& request);

    [[nodiscard]] bool is_json() const { return request_.json; }
    [[nodiscard]] FILE* out() const { return request_.out; }

    void add(nlohmann::json result) { results_.push_back(std::move(result)); }

    // Takes what the reader has said so far. Lines that an error repeats are left out of what is
    // shown; the same line many times is shown once.
    void hear();
    // The error with a reason, as it is reported. `show` is false where the results tell it too.
    Error fail(const Error& failure, bool show = true);

    [[nodiscard]] bool failed() const { return !errors_.empty(); }
    // Prints the document.
    void finish();

private:
    void pass_on_lines(const std::string& said, const Error* but) const;

    const Request& request_;
    nlohmann::json results_ = nlohmann::json::array();
    nlohmann::json errors_ = nlohmann::json::array();
};

// An error as the results hold it.
nlohmann::json error_json(const Error& failure);

} // namespace fld_host
