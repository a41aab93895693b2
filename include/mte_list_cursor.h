// Remembered positions in the sorted singly linked lists of the trigger, event
// and objects tables. A management walk asks for the row after the one it was
// just given, recovery and bulk configuration visit keys in ascending order:
// starting each walk at the greatest remembered entry at or before the key
// instead of at the head makes a full walk of n rows cost O(n), not O(n^2).
// A few positions are kept, so that walkers that interleave (the bridge and
// eventmibctl) each keep theirs.
//
// Each position also carries the presence flags of every entry from the head
// through it (which kinds of sub-row they have), so that a sub-table's
// get-next reports exactly the flags a walk from the head would have. A change
// of the list keeps them exact where that is cheap (an insertion ORs the new
// entry's flags into the positions after it) and otherwise marks them unknown;
// a walk that needs the flags then starts at the head once.
//
// The positions are module state of the list's owner and are read and written
// only on the main thread (list walks of the worker never use them).
#ifndef MTE_LIST_CURSOR_H
#define MTE_LIST_CURSOR_H

#include <cstddef>
#include <cstdint>

// Traits: static int Compare(const Entry* a, const Entry* b), the sign of
// a - b in index order, and static uint8_t Flags(const Entry*), the entry's
// presence flags (0 for a list without sub-rows).
template <typename Entry, typename Traits, size_t N = 4>
class MTE_LIST_CURSORS {
  public:
    // Where a walk for a key ended.
    struct WALK_S {
        Entry* pstAfter;       // the first entry greater than the key, null at the end
        Entry* pstAtOrBefore;  // the last entry at or before the key, null when none
        uint8_t ucFlags;       // presence flags of every entry up to pstAtOrBefore
        bool bFlagsKnown;
        size_t uiSlot;  // the position the walk started from, N for the head
    };

    void Reset() {
        for (POS_S& stPos : m_astPos) {
            stPos = POS_S{};
        }
    }

    // fnCmp(entry) is the sign of (entry - key). With bNeedFlags the walk
    // starts only where the flags are known, so WALK_S::ucFlags is exact.
    template <typename KeyCmp>
    WALK_S Seek(Entry* pstHead, KeyCmp&& fnCmp, bool bNeedFlags) const {
        WALK_S stWalk{nullptr, nullptr, 0, true, N};
        for (size_t i = 0; i < N; ++i) {
            const POS_S& stPos = m_astPos[i];
            if (stPos.pstEntry == nullptr || (bNeedFlags && !stPos.bFlagsKnown) ||
                fnCmp(stPos.pstEntry) > 0) {
                continue;
            }
            if (stWalk.uiSlot == N ||
                Traits::Compare(stPos.pstEntry, m_astPos[stWalk.uiSlot].pstEntry) > 0) {
                stWalk.uiSlot = i;
            }
        }
        Entry* pst = pstHead;
        if (stWalk.uiSlot < N) {
            const POS_S& stPos = m_astPos[stWalk.uiSlot];
            stWalk.pstAtOrBefore = stPos.pstEntry;
            stWalk.ucFlags = stPos.ucFlags;
            stWalk.bFlagsKnown = stPos.bFlagsKnown;
            pst = stPos.pstEntry->pstNext;
        }
        while (pst != nullptr && fnCmp(pst) <= 0) {
            stWalk.ucFlags |= Traits::Flags(pst);
            stWalk.pstAtOrBefore = pst;
            pst = pst->pstNext;
        }
        stWalk.pstAfter = pst;
        return stWalk;
    }

    // Remembers where the walk ended (its pstAfter, or its pstAtOrBefore) in
    // the position it started from, else in the least recently used one.
    void Remember(const WALK_S& stWalk, bool bAfter) {
        Entry* pstEntry = bAfter ? stWalk.pstAfter : stWalk.pstAtOrBefore;
        if (pstEntry == nullptr) {
            return;
        }
        uint8_t ucFlags = stWalk.ucFlags | (bAfter ? Traits::Flags(pstEntry) : 0);
        size_t uiSlot = stWalk.uiSlot < N ? stWalk.uiSlot : LeastRecentlyUsed();
        for (size_t i = 0; i < N; ++i) {
            if (i != uiSlot && m_astPos[i].pstEntry == pstEntry) {
                m_astPos[i] = POS_S{};
            }
        }
        m_astPos[uiSlot] = POS_S{pstEntry, ucFlags, stWalk.bFlagsKnown, ++m_ulClock};
    }

    // Links a new entry after every entry whose key is equal or smaller and
    // remembers it. Its presence flags must already be set.
    void Insert(Entry** ppstHead, Entry* pstNew) {
        WALK_S stWalk = Seek(
            *ppstHead, [pstNew](const Entry* pst) { return Traits::Compare(pst, pstNew); }, false);
        Entry** ppstLink =
            stWalk.pstAtOrBefore != nullptr ? &stWalk.pstAtOrBefore->pstNext : ppstHead;
        pstNew->pstNext = *ppstLink;
        *ppstLink = pstNew;
        for (POS_S& stPos : m_astPos) {
            if (stPos.pstEntry != nullptr && Traits::Compare(pstNew, stPos.pstEntry) < 0) {
                stPos.ucFlags |= Traits::Flags(pstNew);
            }
        }
        stWalk.pstAfter = pstNew;
        Remember(stWalk, true);
    }

    // Unlinks the entry (nothing when it is not in the list) and forgets it.
    void Unlink(Entry** ppstHead, Entry* pstEntry) {
        Entry** ppstLink = ppstHead;
        const POS_S* pstBest = nullptr;
        for (const POS_S& stPos : m_astPos) {
            if (stPos.pstEntry != nullptr && Traits::Compare(stPos.pstEntry, pstEntry) < 0 &&
                (pstBest == nullptr || Traits::Compare(stPos.pstEntry, pstBest->pstEntry) > 0)) {
                pstBest = &stPos;
            }
        }
        if (pstBest != nullptr) {
            ppstLink = &pstBest->pstEntry->pstNext;
        }
        while (*ppstLink != nullptr && *ppstLink != pstEntry) {
            ppstLink = &(*ppstLink)->pstNext;
        }
        if (*ppstLink == pstEntry) {
            *ppstLink = pstEntry->pstNext;
            pstEntry->pstNext = nullptr;
        }
        for (POS_S& stPos : m_astPos) {
            if (stPos.pstEntry == pstEntry) {
                stPos = POS_S{};
            } else if (stPos.pstEntry != nullptr && Traits::Compare(pstEntry, stPos.pstEntry) < 0) {
                stPos.bFlagsKnown = false;  // a flag may have gone with the entry
            }
        }
    }

    // An entry gained or lost a sub-row.
    void FlagsChanged() {
        for (POS_S& stPos : m_astPos) {
            stPos.bFlagsKnown = false;
        }
    }

  private:
    struct POS_S {
        Entry* pstEntry = nullptr;  // null: the position is free
        uint8_t ucFlags = 0;        // of every entry from the head through pstEntry
        bool bFlagsKnown = false;
        uint64_t ulUsed = 0;
    };

    size_t LeastRecentlyUsed() const {
        size_t uiOldest = 0;
        for (size_t i = 1; i < N; ++i) {
            if (m_astPos[i].ulUsed < m_astPos[uiOldest].ulUsed) {
                uiOldest = i;
            }
        }
        return uiOldest;
    }

    POS_S m_astPos[N];
    uint64_t m_ulClock = 0;
};

#endif  // MTE_LIST_CURSOR_H
