/* The C API header must compile as plain C11. */
#include <ferrotip/ferrotip.h>

int ferrotipHeaderIsC(void)
{
    MethodDescription record = {0};
    FerrotipProcessFn fn = process;
    return (int)sizeof(record) + (fn != 0);
}
