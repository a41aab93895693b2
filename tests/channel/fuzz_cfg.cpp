// libFuzzer target for the management dispatcher: every input is one request
// as the socket would deliver it (at most 5120 bytes, its expiry taken off as
// the socket does) to mte_CFG_Proc, with the real tables behind it on the
// in-memory store. Whatever the input, the reply must be a well-formed reply
// of at most 5120 bytes; crashes, sanitizer findings and malformed replies are
// findings.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mte_cfg.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_msg.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_trigger.h"

namespace {

bool InitModules() {
    uint32_t uiRet = mte_DBG_Init();
    uiRet |= mte_DBM_Init();
    uiRet |= mte_TRIGGER_Init();
    uiRet |= mte_EVENT_Init();
    uiRet |= mte_OBJ_Init();
    uiRet |= mte_SCALAR_Init();
    return uiRet == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pucData, size_t uiSize) {
    static const bool s_bReady = InitModules();
    if (!s_bReady) {
        abort();
    }
    if (uiSize > MTE_MSG_MAX_LEN) {
        return -1;  // the socket never delivers more
    }
    // A copy of exactly the input's size, so that any read past the request
    // is caught by the address sanitizer.
    uint8_t* pucRequest = static_cast<uint8_t*>(malloc(uiSize == 0 ? 1 : uiSize));
    memcpy(pucRequest, pucData, uiSize);
    // The socket takes a request's expiry off before the dispatcher sees it.
    uint32_t uiRequestLen = static_cast<uint32_t>(uiSize);
    uint64_t ullDeadlineNs = 0;
    (void)MTE_MSG_TakeExpiry(pucRequest, &uiRequestLen, &ullDeadlineNs);
    static uint8_t s_aucReply[MTE_MSG_MAX_LEN];
    uint32_t uiLen = mte_CFG_Proc(pucRequest, uiRequestLen, MTE_MSG_MAX_LEN, s_aucReply);
    free(pucRequest);
    MTE_MSG_REPLY_S stReply;
    if (uiLen < MTE_MSG_HEAD_SIZE || uiLen > MTE_MSG_MAX_LEN ||
        MTE_MSG_ParseReply(s_aucReply, uiLen, &stReply) != MTE_OK) {
        abort();
    }
    // The reply is matched by the request's sequence number.
    if (uiSize >= 8) {
        uint32_t uiSeq;
        memcpy(&uiSeq, pucData + 4, sizeof(uiSeq));
        if (stReply.uiSequence != uiSeq) {
            abort();
        }
    }
    return 0;
}
