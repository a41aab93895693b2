// Answers of eventmibd to the bridge's get-next requests, kept for a short
// while. snmpd walks a table column by column and passes a GETBULK to a
// subagent one repetition at a time, so without them every varbind costs one
// management exchange that fetches a whole row to answer one column: with
// them a walk asks the daemon once per row (per freshness window) and the
// other columns are answered from the rows it already has, as net-snmp's own
// cache helper does for the tables snmpd serves. Agent thread only; no locks.
#ifndef EMA_MIB_CACHE_H
#define EMA_MIB_CACHE_H

#include <cstddef>
#include <cstdint>

// An answer is used for at most this long after it was fetched: a change
// made past the bridge (eventmibctl) shows in SNMP reads within this time.
// A change through the bridge drops every answer at once.
constexpr int64_t EMA_CACHE_FRESH_MS = 5000;
// Bound of the memory the answers hold (about 20,000 trigger rows); past it,
// answers are not kept and reads go to the daemon.
constexpr size_t EMA_CACHE_MAX_BYTES = 40u << 20;

// The answer to the get-next of this table type and key if it is fresh:
// true with *pucResult (the bridge's row result) and the row copied to pucRow.
bool EMA_CACHE_Find(uint16_t usMsgType, const uint8_t* pucKey, size_t uiKeyLen, uint8_t* pucResult,
                    uint8_t* pucRow);
// Keeps an answer (uiRowLen 0 when it carries no row).
void EMA_CACHE_Put(uint16_t usMsgType, const uint8_t* pucKey, size_t uiKeyLen, uint8_t ucResult,
                   const uint8_t* pucRow, size_t uiRowLen);
// Forgets every answer: on any SET through the bridge, and at unregistration.
void EMA_CACHE_Drop(void);

#endif  // EMA_MIB_CACHE_H
