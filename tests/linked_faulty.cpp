// What fld_linked_faulty.so is called for.
#include "faults.h"

void fld_visit(const char* path, fld_test::LinkedVisit* visit)
{
    *visit = fld_test::visit_linked(path);
}
