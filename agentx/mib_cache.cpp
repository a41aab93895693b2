// The bridge's short-lived answers of eventmibd's get-next, keyed by the table
// type and the key record sent. Expired answers are dropped when looked up and
// by a net-snmp alarm, so that a walk's rows are not held after the walk.
// Agent thread only; no locks.
#include "mib_cache.h"

#include <time.h>

#include <string>
#include <unordered_map>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace {

struct EMA_ANSWER_S {
    int64_t llFetchedMs;
    uint8_t ucResult;
    std::string strRow;
};

std::unordered_map<std::string, EMA_ANSWER_S> g_mapAnswers;
size_t g_uiBytes = 0;
unsigned int g_uiPurgeAlarm = 0;  // net-snmp alarm id, 0 when none is pending

// Rough cost of one answer besides its key and row: the map node.
constexpr size_t EMA_ANSWER_OVERHEAD = 64;

int64_t NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

size_t ema_SizeOf(const std::string& strKey, const EMA_ANSWER_S& stAnswer) {
    return strKey.size() + stAnswer.strRow.size() + EMA_ANSWER_OVERHEAD;
}

std::string ema_Key(uint16_t usMsgType, const uint8_t* pucKey, size_t uiKeyLen) {
    std::string strKey(reinterpret_cast<const char*>(&usMsgType), sizeof(usMsgType));
    strKey.append(reinterpret_cast<const char*>(pucKey), uiKeyLen);
    return strKey;
}

void ema_Erase(std::unordered_map<std::string, EMA_ANSWER_S>::iterator it) {
    g_uiBytes -= ema_SizeOf(it->first, it->second);
    g_mapAnswers.erase(it);
}

void ema_PurgeExpired(unsigned int uiAlarm, void* pArg) {
    g_uiPurgeAlarm = 0;
    int64_t llOldest = NowMs() - EMA_CACHE_FRESH_MS;
    for (auto it = g_mapAnswers.begin(); it != g_mapAnswers.end();) {
        auto itNext = std::next(it);
        if (it->second.llFetchedMs <= llOldest) {
            ema_Erase(it);
        }
        it = itNext;
    }
    if (!g_mapAnswers.empty()) {
        timeval stDelay{EMA_CACHE_FRESH_MS / 1000, (EMA_CACHE_FRESH_MS % 1000) * 1000};
        g_uiPurgeAlarm = snmp_alarm_register_hr(stDelay, 0, ema_PurgeExpired, nullptr);
    }
}

}  // namespace

bool EMA_CACHE_Find(uint16_t usMsgType, const uint8_t* pucKey, size_t uiKeyLen, uint8_t* pucResult,
                    uint8_t* pucRow) {
    auto it = g_mapAnswers.find(ema_Key(usMsgType, pucKey, uiKeyLen));
    if (it == g_mapAnswers.end()) {
        return false;
    }
    if (NowMs() - it->second.llFetchedMs >= EMA_CACHE_FRESH_MS) {
        ema_Erase(it);
        return false;
    }
    *pucResult = it->second.ucResult;
    it->second.strRow.copy(reinterpret_cast<char*>(pucRow), it->second.strRow.size());
    return true;
}

void EMA_CACHE_Put(uint16_t usMsgType, const uint8_t* pucKey, size_t uiKeyLen, uint8_t ucResult,
                   const uint8_t* pucRow, size_t uiRowLen) {
    std::string strKey = ema_Key(usMsgType, pucKey, uiKeyLen);
    EMA_ANSWER_S stAnswer{NowMs(), ucResult,
                          std::string(reinterpret_cast<const char*>(pucRow), uiRowLen)};
    auto it = g_mapAnswers.find(strKey);
    if (it != g_mapAnswers.end()) {
        ema_Erase(it);
    }
    size_t uiSize = ema_SizeOf(strKey, stAnswer);
    if (g_uiBytes + uiSize > EMA_CACHE_MAX_BYTES) {
        return;
    }
    g_uiBytes += uiSize;
    g_mapAnswers.emplace(std::move(strKey), std::move(stAnswer));
    if (g_uiPurgeAlarm == 0) {
        timeval stDelay{EMA_CACHE_FRESH_MS / 1000, (EMA_CACHE_FRESH_MS % 1000) * 1000};
        g_uiPurgeAlarm = snmp_alarm_register_hr(stDelay, 0, ema_PurgeExpired, nullptr);
    }
}

void EMA_CACHE_Drop(void) {
    g_mapAnswers.clear();
    g_uiBytes = 0;
    if (g_uiPurgeAlarm != 0) {
        snmp_alarm_unregister(g_uiPurgeAlarm);
        g_uiPurgeAlarm = 0;
    }
}
