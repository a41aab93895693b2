// libFuzzer target for the bridge's notification decoder: any datagram of up
// to 65000 bytes either decodes to snmpTrapOID.0 plus exactly the announced
// number of bindings, or is refused with nothing allocated. Crashes,
// sanitizer findings and broken invariants are findings. Built with
// MTE_FUZZ=ON and run by tools/fuzz.sh.
#include <cstdint>
#include <cstdlib>

#include "agx_notify.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pucData, size_t uiSize) {
    AGX_NOTIFY_S stNotify;
    uint32_t uiRet = AGX_DecodeNotify(pucData, uiSize, &stNotify);
    if (uiRet != AGX_DECODE_OK) {
        if (stNotify.pstVars != nullptr) {
            abort();
        }
        return 0;
    }
    size_t uiCount = 0;
    for (netsnmp_variable_list* pstVar = stNotify.pstVars; pstVar != nullptr;
         pstVar = pstVar->next_variable) {
        uiCount++;
    }
    if (uiCount != static_cast<size_t>(stNotify.usVarCount) + 1 ||
        stNotify.pstVars->type != ASN_OBJECT_ID) {
        abort();
    }
    snmp_free_varbind(stNotify.pstVars);
    return 0;
}
