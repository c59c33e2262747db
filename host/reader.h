// Readers of FLD files: the one that is linked in, and libraries that are loaded. Everything here
// and in dataset.h may be called from any thread; one call at a time is at work, whatever the
// reader. A call from inside a sink is refused with std::logic_error.
#pragma once

#include "error.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fld_host
{

struct ReaderState;

// A line that a reader says without the words that its complaints begin with.
std::string without_opening(std::string line);

class Reader
{
public:
    // The reader whose objects are linked in; there is always one, and only one.
    static std::shared_ptr<Reader> linked();
    // Any library with the two exports. Throws Error (no_reader) when it cannot be loaded or does
    // not behave as a reader must. A library that is loaded already is not loaded again, and none
    // is unloaded.
    static std::shared_ptr<Reader> load(const std::string& path);

    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // The names that it registered, never none, and the one that datasets are opened by: the first
    // unless another was chosen. Throws Error (no_reader) when there is none of that name.
    [[nodiscard]] const std::vector<std::string>& names() const;
    void choose(const std::string& name);

    // The time of a file; no dataset needs to be open. Throws Error.
    [[nodiscard]] float time(const std::string& file);

    // Whether a file holds a grid of its own: none when it cannot be read.
    [[nodiscard]] std::optional<bool> holds_grid(const std::string& file);

    // The lines that the linked reader has said since they were taken last, warnings too.
    [[nodiscard]] std::string take_messages();

private:
    friend class Dataset;
    explicit Reader(std::unique_ptr<ReaderState> state);
    std::unique_ptr<ReaderState> state_;
    std::vector<std::string> names_;
};

} // namespace fld_host
