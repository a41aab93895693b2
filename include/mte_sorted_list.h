// The sorted row lists of the trigger, event and objects tables, one skeleton
// for the three: the index orders, lookups, insertion after equal keys,
// unlinking, get-next walks, and the sub-rows (test, delta, notification and
// set rows) that hang off a trigger or an event and are walked in its order.
//
// Index order: owner length first, then the owner's bytes, then the name:
// trigger and event names by their bytes alone (an implied name carries no
// length in the OID), objects names by length, then bytes, then the objects
// index.
//
// Remembered positions: a management walk asks for the row after the one it was
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
#ifndef MTE_SORTED_LIST_H
#define MTE_SORTED_LIST_H

#include <cstddef>
#include <cstdint>
#include <cstring>

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

// ---------------------------------------------------------------------------
// Index orders.
// ---------------------------------------------------------------------------
inline int mte_list_Sign(int i) {
    return i < 0 ? -1 : (i > 0 ? 1 : 0);
}

inline int mte_list_CompareU32(uint32_t uiA, uint32_t uiB) {
    return uiA < uiB ? -1 : (uiA > uiB ? 1 : 0);
}

// A trigger or event index: owner (with its length) and the implied name.
struct MTE_NAMED_KEY_S {
    uint32_t uiOwnerLen;
    const char* pszOwner;
    const char* pszName;
};

inline int mte_list_CompareNamed(const MTE_NAMED_KEY_S& stA, const MTE_NAMED_KEY_S& stB) {
    int iCmp = mte_list_CompareU32(stA.uiOwnerLen, stB.uiOwnerLen);
    if (iCmp == 0) {
        iCmp = mte_list_Sign(strcmp(stA.pszOwner, stB.pszOwner));
    }
    return iCmp != 0 ? iCmp : mte_list_Sign(strcmp(stA.pszName, stB.pszName));
}

// An objects index: owner and objects name, each with its length, and the
// objects index; a group is the owner and name alone.
struct MTE_OBJ_KEY_S {
    uint32_t uiOwnerLen;
    const char* pszOwner;
    uint32_t uiNameLen;
    const char* pszName;
    uint32_t uiIndex;
};

inline int mte_list_CompareGroup(const MTE_OBJ_KEY_S& stA, const MTE_OBJ_KEY_S& stB) {
    int iCmp = mte_list_CompareU32(stA.uiOwnerLen, stB.uiOwnerLen);
    if (iCmp == 0) {
        iCmp = mte_list_Sign(strcmp(stA.pszOwner, stB.pszOwner));
    }
    if (iCmp == 0) {
        iCmp = mte_list_CompareU32(stA.uiNameLen, stB.uiNameLen);
    }
    return iCmp != 0 ? iCmp : mte_list_Sign(strcmp(stA.pszName, stB.pszName));
}

inline int mte_list_CompareObjects(const MTE_OBJ_KEY_S& stA, const MTE_OBJ_KEY_S& stB) {
    int iCmp = mte_list_CompareGroup(stA, stB);
    return iCmp != 0 ? iCmp : mte_list_CompareU32(stA.uiIndex, stB.uiIndex);
}

// Order of entries that carry uiOwnerLen and a row with szOwner and szName;
// pfFlags gives an entry's presence flags.
template <typename Entry, uint8_t (*pfFlags)(const Entry*)>
struct MTE_NAMED_ORDER {
    using Key = MTE_NAMED_KEY_S;
    static Key KeyOf(const Entry* pstEntry) {
        return Key{pstEntry->uiOwnerLen, pstEntry->stRow.szOwner, pstEntry->stRow.szName};
    }
    static int CompareKeys(const Key& stA, const Key& stB) {
        return mte_list_CompareNamed(stA, stB);
    }
    static int Compare(const Entry* pstA, const Entry* pstB) {
        return CompareKeys(KeyOf(pstA), KeyOf(pstB));
    }
    static uint8_t Flags(const Entry* pstEntry) { return pfFlags(pstEntry); }
};

// The sub-row of the first entry from pstEntry on that has one: a sub-table's
// get-next over its parent list's get-next.
template <typename Entry, typename Row>
Row* mte_list_FirstSubRow(Entry* pstEntry, Row* Entry::*pstMember) {
    while (pstEntry != nullptr && pstEntry->*pstMember == nullptr) {
        pstEntry = pstEntry->pstNext;
    }
    return pstEntry != nullptr ? pstEntry->*pstMember : nullptr;
}

// ---------------------------------------------------------------------------
// The list. Traits: Key, KeyOf(entry), CompareKeys(a, b), Compare(entry,
// entry) and Flags(entry). Entries link through pstNext and must have their
// key's lengths set before they are inserted.
// ---------------------------------------------------------------------------
template <typename Entry, typename Traits>
class MTE_SORTED_LIST {
  public:
    using Key = typename Traits::Key;

    Entry* Head() const { return m_pstHead; }
    bool IsEmpty() const { return m_pstHead == nullptr; }

    // Forgets every entry (the caller frees them) and every position.
    Entry* Release() {
        Entry* pstHead = m_pstHead;
        m_pstHead = nullptr;
        m_stCursors.Reset();
        return pstHead;
    }

    // The entry with the key, walking from the head and writing nothing, so
    // that readers under a read lock (the worker) may call it.
    Entry* Find(const Key& stKey) const {
        for (Entry* pst = m_pstHead; pst != nullptr; pst = pst->pstNext) {
            int iCmp = Traits::CompareKeys(Traits::KeyOf(pst), stKey);
            if (iCmp >= 0) {
                return iCmp == 0 ? pst : nullptr;
            }
        }
        return nullptr;
    }

    // The entry with the key, starting at a remembered position and
    // remembering it (main thread only).
    Entry* FindRemembered(const Key& stKey) {
        auto stWalk = m_stCursors.Seek(m_pstHead, VsKey(stKey), false);
        Entry* pstEntry = stWalk.pstAtOrBefore;
        if (pstEntry == nullptr || Traits::CompareKeys(Traits::KeyOf(pstEntry), stKey) != 0) {
            return nullptr;
        }
        m_stCursors.Remember(stWalk, false);
        return pstEntry;
    }

    // The first entry after the key (main thread only). With pucFlags, the
    // presence flags of every entry up to the key are ORed into it, so that a
    // sub-table can tell its end from an empty table.
    Entry* Next(const Key& stKey, uint8_t* pucFlags) {
        auto stWalk = m_stCursors.Seek(m_pstHead, VsKey(stKey), pucFlags != nullptr);
        if (pucFlags != nullptr) {
            *pucFlags |= stWalk.ucFlags;
        }
        m_stCursors.Remember(stWalk, stWalk.pstAfter != nullptr);
        return stWalk.pstAfter;
    }

    // Links the entry after every entry with an equal or smaller key.
    void Insert(Entry* pstEntry) { m_stCursors.Insert(&m_pstHead, pstEntry); }
    // Unlinks the entry; nothing when it is not in the list.
    void Unlink(Entry* pstEntry) { m_stCursors.Unlink(&m_pstHead, pstEntry); }
    // An entry gained or lost a sub-row.
    void FlagsChanged() { m_stCursors.FlagsChanged(); }

  private:
    static auto VsKey(const Key& stKey) {
        return
            [&stKey](const Entry* pst) { return Traits::CompareKeys(Traits::KeyOf(pst), stKey); };
    }

    Entry* m_pstHead = nullptr;
    MTE_LIST_CURSORS<Entry, Traits> m_stCursors;
};

#endif  // MTE_SORTED_LIST_H
