/* The header a host includes must compile as C too, its layout checks included. */
#include "api/exports.h"

int32_t CallFromC(void);
int32_t CallFromC(void) {
    return OrvaneMcp_GetApiVersion();
}
