// What the host library asks of the system beside the reader's platform layer (utf8wrap.h): one
// source file for each kind of system stands behind it. Paths are UTF-8. What fails leaves its
// reason in errno, where a function does not say otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace fld_host
{

// ---- words ----

// What an errno means.
std::string error_text(int error);

// ---- paths ----

// The characters after which a path's last name begins.
const char* path_separators();

// One path for all that differ only in how they are written, as far as that can be told without a
// look at the files: "a/b" for "./a/b".
std::string plain_path(const std::string& path);

// The name that a directory has for a file which the system finds under another as well: in another
// case, or shortened. Empty when there is no other, as wherever names are found only as they are.
std::string other_name(const std::string& path);

// ---- files that are written ----

// Whether anything has the name: a file, a directory, a link to nothing. False also when the system
// does not tell.
bool is_taken(const std::string& path);

// Makes a new file; false when the name is taken.
bool create_file(const std::string& path);

// A file to be written on after its first bytes: what follows them is cut off. Null when it cannot
// be opened; the caller closes it.
FILE* open_to_continue(const std::string& path, int64_t bytes);

// Gives a file another name in its directory. False, with EEXIST, when that is taken.
bool name_file(const std::string& path, const std::string& name);

void remove_file(const std::string& path);

// One for each process that runs.
std::string process_number();

// ---- memory ----

// Uninitialised memory, for much data too, to be given back by release_memory. Null without.
void* allocate_memory(size_t bytes);
void release_memory(void* memory);

// ---- libraries ----

// Loads a library. Null when it cannot be loaded: `why` says so in a line.
void* load_library(const std::string& path, std::string* why);
void* find_function(void* library, const char* name); // null when there is none
void unload_library(void* library);

} // namespace fld_host
