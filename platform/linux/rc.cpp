// Resource-string registry: texts kept by module number (the high bits of an
// identifier), looked up by index (its low 16 bits). Registration happens at
// start-up on the main thread; lookups may come from both threads.
#include "plat_rc.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace {
constexpr uint32_t RC_INDEX_MASK = 0xFFFF;

std::shared_mutex g_stLock;
std::map<uint32_t, std::vector<const char*>> g_mapModules;
}  // namespace

uint32_t RC_RegInfo(uint32_t uiModule, const RC_DESC_S* pstDesc, uint32_t uiCount) {
    if (pstDesc == nullptr || pstDesc->ppszTexts == nullptr || uiCount == 0 ||
        uiCount > RC_INDEX_MASK + 1 || (uiModule & RC_INDEX_MASK) != 0) {
        return 1;
    }
    std::vector<const char*> apszTexts(pstDesc->ppszTexts, pstDesc->ppszTexts + uiCount);
    for (const char*& pszText : apszTexts) {
        if (pszText == nullptr) {
            pszText = "";
        }
    }
    std::unique_lock guard(g_stLock);
    g_mapModules[uiModule] = std::move(apszTexts);
    return 0;
}

uint32_t RC_DeregInfo(uint32_t uiModule) {
    std::unique_lock guard(g_stLock);
    return g_mapModules.erase(uiModule) == 1 ? 0 : 1;
}

const char* RC_LoadString(uint32_t uiId) {
    std::shared_lock guard(g_stLock);
    auto it = g_mapModules.find(uiId & ~RC_INDEX_MASK);
    if (it == g_mapModules.end() || (uiId & RC_INDEX_MASK) >= it->second.size()) {
        return "";
    }
    return it->second[uiId & RC_INDEX_MASK];
}
