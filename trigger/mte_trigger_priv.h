// Module-private pieces shared by the trigger table's source files: the list
// insertion and unlinking used by the row changes. Main thread only.
#ifndef MTE_TRIGGER_PRIV_H
#define MTE_TRIGGER_PRIV_H

#include "mte_types.h"

// Links a new entry into the list in index order (after an equal key).
void mte_trigger_Insert(MTE_TRIGGER_ENTRY_S* pstEntry);
// Unlinks the entry from the list; nothing when it is not in it.
void mte_trigger_Unlink(MTE_TRIGGER_ENTRY_S* pstEntry);
// A linked entry gained or lost a test or delta row (the walks' presence flags).
void mte_trigger_TestRowsChanged(void);

#endif  // MTE_TRIGGER_PRIV_H
