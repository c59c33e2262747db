#include "reader.h"

#include "readable.h"
#include "reader_state.h"
#include "readers/cradle/exports.h"
#include "readers/cradle/linked_reader.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <tuple>
#include <utility>

namespace fld_host
{

// ---- turns ----

static std::mutex one_at_a_time;
static std::atomic<std::thread::id> whose_turn;

bool Turn::is_mine()
{
    return whose_turn == std::this_thread::get_id();
}

Turn::Turn()
{
    if (is_mine()) {
        throw std::logic_error("a reader was called from inside a call of a reader");
    }
    one_at_a_time.lock();
    whose_turn = std::this_thread::get_id();
}

Turn::Turn(ReaderState& state) : Turn()
{
    if (state.library) state.library->make_current();
}

Turn::~Turn()
{
    ReaderLibrary::make_none_current();
    whose_turn = std::thread::id();
    one_at_a_time.unlock();
}

// ---- what the reader says ----

Listening::Listening(ReaderState& state) : state_(state)
{
    state.services.begin_call();
    set_hooks(false);
}

Listening::~Listening()
{
    if (!state_.is_linked) return;
    set_reader_hooks({});
    // Of what nobody takes only the end is kept.
    constexpr size_t KEPT = size_t{1} << 20;
    try {
        state_.said += says_;
        if (state_.said.size() > KEPT) {
            state_.said.erase(0, state_.said.find('\n', state_.said.size() - KEPT) + 1);
        }
    } catch (const std::bad_alloc&) {
        state_.said.clear();
    }
}

void Listening::set_hooks(bool with_questions)
{
    if (!state_.is_linked) return;
    set_reader_hooks({.context = this,
                      .message = take_message,
                      .go_on = with_questions ? go_on : nullptr,
                      .opened = take_file,
                      .no_memory = &no_memory_});
}

void Listening::ask_about(int64_t bytes_in_all)
{
    bytes_in_all_ = bytes_in_all;
    set_hooks(true);
}

// Nothing may be thrown through the reader: without memory for it a message is lost.
void Listening::take_message(void* context, const char* text)
try {
    static_cast<Listening*>(context)->says_ += text;
} catch (const std::bad_alloc&) {
    static_cast<Listening*>(context)->no_memory_ = true;
}

void Listening::take_file(void* context, const char* path)
try {
    static_cast<Listening*>(context)->last_file_ = path;
} catch (const std::bad_alloc&) {
    static_cast<Listening*>(context)->no_memory_ = true;
}

bool Listening::go_on(void* context, int64_t bytes)
{
    auto* const self = static_cast<Listening*>(context);
    self->bytes_done_ += bytes;
    // What is read twice, such as headers, does not count.
    const int64_t done = std::min(self->bytes_done_, self->bytes_in_all_);
    return self->state_.services.go_on(done, self->bytes_in_all_);
}

std::optional<bool> look_for_grid_quietly(const std::string& file)
{
    set_reader_hooks({.message = [](void* /*context*/, const char* /*text*/) {}});
    bool holds_grid = false;
    const bool is_known = look_for_grid(file.c_str(), &holds_grid);
    set_reader_hooks({});
    return is_known ? std::optional(holds_grid) : std::nullopt;
}

// ---- what went wrong ----

static bool has(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

std::string without_opening(std::string line)
{
    for (const std::string word : {"Data reader error: ", "FLD file error: ", "Error: "}) {
        if (line.starts_with(word)) line.erase(0, word.size());
    }
    return line;
}

// The last line that is no warning.
static std::string last_words(const std::string& says)
{
    std::string last;
    std::istringstream lines(says);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && !line.starts_with("Data reader warning: ")) last = line;
    }
    return without_opening(last);
}

// Files that the search for a grid file could not look into.
static std::string passed_over(const std::string& says)
{
    std::string text;
    std::istringstream lines(says);
    for (std::string line; std::getline(lines, line);) {
        for (const std::string word :
             {"Cannot open time step file: ", "Time step file is not unformatted: "}) {
            if (!line.starts_with(word)) continue;
            const std::string path = line.substr(word.size());
            const std::string why = why_not_readable(path);
            text += "; " + path + " was passed over: " + (why.empty() ? "no FLD file" : why);
        }
    }
    return text;
}

Error Listening::failure(const std::string& file, const std::string& what,
                         const std::string& problem) const
{
    using enum Error::Kind;
    const std::string& blamed = last_file_.empty() ? file : last_file_;
    const auto error = [&](Error::Kind kind, const std::string& reason, bool is_known = true) {
        Error failure(kind, kind == no_grid_file ? file : blamed, what + ": " + reason, says_);
        failure.what_fails = what;
        failure.has_reason = is_known;
        return failure;
    };
    if (state_.services.is_cancelled()) return error(cancelled, "cancelled");
    if (!problem.empty()) return error(damaged, problem);
    if (no_memory_ || has(says_, "not enough dynamic memory")) {
        return error(no_memory, "not enough memory");
    }
    const std::string why = why_not_readable(blamed);
    if (!why.empty()) return error(cannot_open, why);
    if (has(says_, "unable to find grid file")) {
        return error(no_grid_file,
                     "no earlier file of its series holds its grid" + passed_over(says_));
    }
    if (!state_.is_linked && what == "cannot be opened" && look_for_grid_quietly(file) == false) {
        return error(no_grid_file, "no earlier file of its series holds its grid");
    }
    if (has(says_, "is not unformatted")) return error(cannot_open, "it is no FLD file", false);
    const std::string words = last_words(says_);
    if (has(words, "does not match query count")) return error(changed, words);
    if (words.starts_with("Cannot open ")) return error(cannot_open, "the system does not open it");
    if (!words.empty()) return error(damaged, words);
    if (!state_.is_linked) return error(damaged, "the reader refuses it", false);
    return error(damaged, "the file may be cut short or damaged", false);
}

// ---- readers ----

static std::unique_ptr<ReaderState> start(std::unique_ptr<ReaderState> state,
                                          const std::string& path)
try {
    state->library->start();
    if (!state->library->registrations().readers.empty()) return state;
    throw Error(Error::Kind::no_reader, path, "it registers no reader");
} catch (const Error&) {
    throw;
} catch (const std::runtime_error& failure) {
    throw Error(Error::Kind::no_reader, path, failure.what());
}

Reader::Reader(std::unique_ptr<ReaderState> state) : state_(std::move(state))
{
    for (const RegisteredReader& reader : state_->library->registrations().readers) {
        names_.push_back(reader.name);
    }
}

Reader::~Reader() = default;

// Readers stay for good: a library that came back would share its data with the one that goes.

std::shared_ptr<Reader> Reader::linked()
{
    static auto& reader = *new std::shared_ptr<Reader>;
    static std::atomic<bool> is_there = false;
    if (is_there) return reader;
    const Turn turn; // before any lock of a static: a sink that asks is refused
    if (!is_there) {
        auto state = std::make_unique<ReaderState>();
        state->is_linked = true;
        state->library = std::make_unique<ReaderLibrary>(
            ReaderExports{reader_set_func, reader_get_func}, state->services);
        reader.reset(new Reader(start(std::move(state), "the linked reader")));
        is_there = true;
    }
    return reader;
}

std::shared_ptr<Reader> Reader::load(const std::string& path)
{
    // By the file that it is, whatever its name: a library's data is there once. What the system
    // finds elsewhere goes by its name.
    using Identity = std::tuple<uint64_t, uint64_t, std::string>;
    static auto& loaded = *new std::map<Identity, std::shared_ptr<Reader>>;
    utf8wrap::FileStatus status{};
    const bool is_file = utf8wrap::_stat64(path.c_str(), &status) == 0;
    const Turn turn;
    std::shared_ptr<Reader>& reader =
        loaded[{status.device, status.file_number, is_file ? "" : path}];
    if (reader) return reader;
    auto state = std::make_unique<ReaderState>();
    try {
        state->library = std::make_unique<ReaderLibrary>(path, state->services);
    } catch (const std::runtime_error& failure) {
        throw Error(Error::Kind::no_reader, "", failure.what());
    }
    reader.reset(new Reader(start(std::move(state), path)));
    return reader;
}

const std::vector<std::string>& Reader::names() const
{
    return names_;
}

void Reader::choose(const std::string& name)
{
    const auto found = std::find(names_.begin(), names_.end(), name);
    if (found == names_.end()) {
        std::string known;
        for (const std::string& other : names_) {
            known += (known.empty() ? "\"" : ", \"") + other + '"';
        }
        throw Error(Error::Kind::no_reader, name, "no such reader; there are " + known);
    }
    const Turn turn(*state_);
    state_->chosen = static_cast<size_t>(found - names_.begin());
}

std::string Reader::take_messages()
{
    const Turn turn(*state_);
    return std::exchange(state_->said, {});
}

std::optional<bool> Reader::holds_grid(const std::string& file)
{
    const Turn turn;
    return look_for_grid_quietly(file);
}

float Reader::time(const std::string& file)
{
    const Turn turn(*state_);
    const Registrations& known = state_->library->registrations();
    if (!known.peek_time) {
        // Readers register what answers this when they are to open their first file.
        const std::string said = state_->said;
        {
            const Listening unheard(*state_);
            constexpr int32_t UNIT = 20;
            constexpr int32_t NONE = 0;
            int32_t counts[4] = {};
            state_->open_dataset = 0;
            state_->reader().read_header(state_->is_linked ? "" : file.c_str(), nullptr, &UNIT,
                                         &NONE, &NONE, &NONE, &counts[0], nullptr, &counts[1],
                                         nullptr, nullptr, &counts[2], nullptr, &counts[3]);
        }
        state_->said = said;
    }
    const Listening listening(*state_);
    float time = 0;
    int32_t error_flag = 1;
    if (known.peek_time) {
        known.peek_time(nullptr, file.c_str(), nullptr, nullptr, &time, &error_flag);
    }
    if (error_flag != 0) throw listening.failure(file, "its time cannot be read");
    return time;
}

} // namespace fld_host
