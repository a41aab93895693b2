// Resource-string registry: texts registered by module number.
#ifndef PLAT_RC_H
#define PLAT_RC_H

#include <cstdint>

struct RC_DESC_S {
    const char* const* ppszTexts;  // array of the module's texts, in index order
    uint64_t ulReserved;           // always 0
};
static_assert(sizeof(RC_DESC_S) == 16);

// Registers uiCount texts under the module number; 0 on success.
uint32_t RC_RegInfo(uint32_t uiModule, const RC_DESC_S* pstDesc, uint32_t uiCount);
uint32_t RC_DeregInfo(uint32_t uiModule);
// The text of identifier (module | index); "" for an unknown identifier.
const char* RC_LoadString(uint32_t uiId);

#endif  // PLAT_RC_H
