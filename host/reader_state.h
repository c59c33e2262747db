// What a reader is made of: for the files of the library alone.
#pragma once

#include "checked_services.h"
#include "error.h"
#include "reader_library.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fld_host
{

struct ReaderState {
    CheckedServices services;
    std::unique_ptr<ReaderLibrary> library;
    bool is_linked = false;
    size_t chosen = 0;               // among the registered readers
    std::string said;                // by the linked reader, until it is taken
    std::vector<char> boundary_rows; // names, as a header callback leaves them
    std::vector<char> variable_rows;
    int64_t open_dataset = 0; // the dataset that the reader holds; 0: none of ours

    [[nodiscard]] const RegisteredReader& reader() const
    {
        return library->registrations().readers.at(chosen);
    }
};

// While one lives, this thread calls the reader, and no other thread calls any or looks into files
// by the record layer, which is one for all. Throws std::logic_error inside another turn of the
// same thread.
class Turn
{
public:
    Turn(); // to call no reader
    explicit Turn(ReaderState& state);
    static bool is_mine(); // whether this thread is in one
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
};

// While one lives, what the linked reader says goes here and not to standard output, and no lack of
// memory ends the process. Of a loaded library nothing is heard.
class Listening
{
public:
    explicit Listening(ReaderState& state);
    ~Listening();
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    // From now on the sink of the services is asked whether to go on.
    void ask_about(int64_t bytes_in_all);

    // What the failure of a call means that was about `file`. `problem`: what the services found.
    [[nodiscard]] Error failure(const std::string& file, const std::string& what,
                                const std::string& problem = "") const;

private:
    static void take_message(void* context, const char* text);
    static void take_file(void* context, const char* path);
    static bool go_on(void* context, int64_t bytes);
    void set_hooks(bool with_questions);

    ReaderState& state_;
    std::string says_;
    std::string last_file_;
    bool no_memory_ = false;
    int64_t bytes_done_ = 0;
    int64_t bytes_in_all_ = 0;
};

// Whether a file holds a grid of its own; none when it cannot be read. That is a matter of the
// file: the linked reader looks, whichever reader is asked. Inside a turn, outside of Listening to
// it.
std::optional<bool> look_for_grid_quietly(const std::string& file);

} // namespace fld_host
