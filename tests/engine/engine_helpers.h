// Helpers of the engine tests: triggers and samples built by hand.
#ifndef ENGINE_HELPERS_H
#define ENGINE_HELPERS_H

#include <initializer_list>

#include "mte_types.h"

// A zero-filled trigger entry with the table's defaults (idle, no timer,
// instance released), owner "own" and the given name.
MTE_TRIGGER_ENTRY_S* ENG_NewTrigger(const char* pszName);
void ENG_FreeTrigger(MTE_TRIGGER_ENTRY_S* pstTrigger);
MTE_OID_S ENG_Oid(std::initializer_list<uint32_t> auiSubIds);
// A heap value record as the SNMP client makes them.
SNMP_VALUE_S* ENG_IntValue(int32_t iValue, uint32_t uiType = 0);
// A sample appended to the list (head, tail).
MTE_SAMPLE_S* ENG_AppendSample(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail,
                               const char* pszContext, const MTE_OID_S& stOid,
                               SNMP_VALUE_S* pstValue, uint16_t usOverLimit = 0);
uint32_t ENG_ListLen(const MTE_SAMPLE_S* pstHead);

#endif  // ENGINE_HELPERS_H
