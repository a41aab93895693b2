// Module-private pieces shared by the trigger table's source files: the list
// insertion and unlinking used by the row changes, the store list names and
// the bounded request copy. Main thread only.
#ifndef MTE_TRIGGER_PRIV_H
#define MTE_TRIGGER_PRIV_H

#include "mte_types.h"

// Store lists of the trigger configuration: name, name size with its NUL.
constexpr const char* MTE_LIST_TRIGGER = "mteTrigger";
constexpr uint32_t MTE_LIST_TRIGGER_NAME_SIZE = 11;
constexpr const char* MTE_LIST_BOOLEAN = "mteBoolean";
constexpr uint32_t MTE_LIST_BOOLEAN_NAME_SIZE = 11;
constexpr const char* MTE_LIST_THRESHOLD = "mteThreshold";
constexpr uint32_t MTE_LIST_THRESHOLD_NAME_SIZE = 13;
constexpr const char* MTE_LIST_EXISTENCE = "mteExistence";
constexpr uint32_t MTE_LIST_EXISTENCE_NAME_SIZE = 13;
constexpr const char* MTE_LIST_DELTA = "mteDelta";
constexpr uint32_t MTE_LIST_DELTA_NAME_SIZE = 9;

// Links a new entry into the list in index order (after an equal key).
void mte_trigger_Insert(MTE_TRIGGER_ENTRY_S* pstEntry);
// Unlinks the entry from the list; nothing when it is not in it.
void mte_trigger_Unlink(MTE_TRIGGER_ENTRY_S* pstEntry);
// A linked entry gained or lost a test or delta row (the walks' presence flags).
void mte_trigger_TestRowsChanged(void);

// Terminates a fixed string field in place, so that request fields that
// arrive without their NUL are read as at most size - 1 characters.
template <size_t N>
inline void mte_trigger_Terminate(char (&szField)[N]) {
    szField[N - 1] = '\0';
}

#endif  // MTE_TRIGGER_PRIV_H
