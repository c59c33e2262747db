// A host in C that knows nothing but the library's two exports: windows_host DLL FILE SERVICE...
//
// It loads the library, opens the file, reads a grid of four nodes and unloads the library, a
// thousand times; the last time it hands over a file that is not there, between two lines of its
// own. Those it writes past the C library, as a host does that has another one: everything must
// come out in order, with line ends as they are. Exit status 0: every visit went as it should.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

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
static int cells;

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

static int create_cell(const int32_t* face_flags, const int32_t* nodes)
{
    return ++cells > 0;
}

static int create_face(int32_t type, int32_t vertices, const int32_t* nodes, int32_t one)
{
    return 0;
}

static void do_nothing(void) {}

static HMODULE load(const char* path, int service_count, char** services)
{
    const HMODULE library = LoadLibraryA(path);
    if (!library) return NULL;
    SetFunction* const set = (SetFunction*)(void*)GetProcAddress(library, "reader_set_func");
    GetFunction* const get = (GetFunction*)(void*)GetProcAddress(library, "reader_get_func");
    for (int i = 0; i < service_count; ++i) set(do_nothing, services[i]);
    set((Function*)register_reader, "zn_register_data_reader");
    set((Function*)register_close, "register_user_close_file");
    set((Function*)create_cell, "create_tet_ele");
    set((Function*)create_face, "create_boundary_face");
    Function* start = NULL;
    if (get(&start, "register_data_readers") != 1) return NULL;
    start();
    return library;
}

static int32_t visit(const char* file)
{
    const int32_t unit = 7, one = 1, two = 2, four = 4;
    int32_t grids, nodes, boundaries, variables, flag = -1;
    char boundary_names[2 * 80], variable_names[80];
    float coordinates[3 * 4], values[4];
    read_header(file, NULL, &unit, &one, &two, &one, &grids, &nodes, &boundaries, boundary_names,
                NULL, &variables, variable_names, &flag);
    if (flag != 0) return flag;
    read_data(&unit, &one, &four, coordinates, &one, values, &flag);
    close_file();
    return flag;
}

static void say(const char* text)
{
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, (DWORD)strlen(text), &written, NULL);
}

int main(int argc, char** argv)
{
    DWORD handles_before = 0, handles_after = 0;
    for (int round = 1; round <= 1000; ++round) {
        const HMODULE library = load(argv[1], argc - 3, argv + 3);
        if (!library) return 1;
        if (visit(argv[2]) != 0 || cells != round) return 2;
        if (round == 1000) {
            say("before\n");
            if (visit("no_such_file.fld") != 1) return 3;
            say("after\n");
        }
        if (!FreeLibrary(library) || GetModuleHandleA("fld_reader.dll")) return 4;
        GetProcessHandleCount(GetCurrentProcess(), round == 10 ? &handles_before : &handles_after);
    }
    return handles_after > handles_before ? 5 : 0;
}
