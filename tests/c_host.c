// A host in C, linked as C: c_host LIBRARY FILE SERVICE...
//
// It reads a grid while one allocation after the other is refused, until none is, and prints what
// it got then. It fails when the error flag does not tell a refusal, or when the C++ library is
// there.
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// ---- allocations ----

static int inside;               // inside the library, where they are counted and refused
static int allocations, refused; // how many there were; the number of the one that is refused

void* system_malloc(size_t size) __asm__("__libc_malloc");
void* system_calloc(size_t count, size_t size) __asm__("__libc_calloc");

static int refuses(void)
{
    return inside && ++allocations == refused;
}

void* malloc(size_t size)
{
    return refuses() ? NULL : system_malloc(size);
}

void* calloc(size_t nmemb, size_t size)
{
    return refuses() ? NULL : system_calloc(nmemb, size);
}

// ---- services ----

typedef void Function(void);
typedef int SetFunction(Function*, const char*);
typedef int GetFunction(Function**, const char*);
typedef void HeaderCallback(const char*, void*, const int32_t*, const int32_t*, const int32_t*,
                            const int32_t*, int32_t*, int32_t*, int32_t*, char*, void*, int32_t*,
                            char*, int32_t*);
typedef void DataCallback(const int32_t*, const int32_t*, const int32_t*, float*, const int32_t*,
                          float*, int32_t*);

static HeaderCallback* read_header;
static DataCallback* read_data;
static Function* close_file;
static int cells, faces;

static int register_reader(const char* name, int a, int b, HeaderCallback* header,
                           DataCallback* data, void* c, void* d, void* e, void* f)
{
    read_header = header;
    read_data = data;
    return 0;
}

static void register_close(Function* callback)
{
    close_file = callback;
}

static void do_nothing(void) {}

static int create_cell(const int32_t* face_flags, const int32_t* nodes)
{
    return ++cells > 0;
}

static int create_face(int32_t type, int32_t vertices, const int32_t* nodes, int32_t one)
{
    return ++faces <= 0;
}

// ---- reading ----

// Opens the file, reads its grid of four nodes and closes it; the error flag.
static int32_t visit(const char* file)
{
    const int32_t unit = 7, one = 1, two = 2, four = 4;
    int32_t grids, nodes, boundaries, variables, flag = -1;
    char boundary_names[2 * 80], variable_names[80];
    float coordinates[3 * 4], values[4];
    allocations = cells = faces = 0;
    read_header(file, NULL, &unit, &one, &two, &one, &grids, &nodes, &boundaries, boundary_names,
                NULL, &variables, variable_names, &flag);
    if (flag != 0) return flag;
    read_data(&unit, &one, &four, coordinates, &one, values, &flag);
    close_file();
    return flag;
}

int main(int argc, char** argv)
{
    void* const library = dlopen(argv[1], RTLD_NOW);
    SetFunction* const set = (SetFunction*)dlsym(library, "reader_set_func");
    GetFunction* const get = (GetFunction*)dlsym(library, "reader_get_func");
    for (int i = 3; i < argc; ++i) set(do_nothing, argv[i]);
    set((Function*)register_reader, "zn_register_data_reader");
    set((Function*)register_close, "register_user_close_file");
    set((Function*)create_cell, "create_tet_ele");
    set((Function*)create_face, "create_boundary_face");
    Function* start = NULL;
    if (get(&start, "register_data_readers") != 1) return 1;
    start();
    setvbuf(stdout, NULL, _IONBF, 0); // takes no memory when it is first used
    for (int32_t flag = 1; flag != 0; inside = 0) {
        ++refused;
        inside = 1;
        flag = visit(argv[2]);
        if (flag != (allocations >= refused)) return 1;
    }
    printf("%d refused, %d cell, %d faces\n", refused - 1, cells, faces);
    return dlopen("libstdc++.so.6", RTLD_NOW | RTLD_NOLOAD) != NULL;
}
