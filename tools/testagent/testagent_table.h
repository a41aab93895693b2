// mte-testagent's table: 1.3.6.1.4.1.99999.1.1.1.<column>.<index> in the
// default context and in named contexts, with rows and values that tests
// change at run time. Column 1 is a read-write Integer32, column 2 a
// read-only Gauge32, column 3 a read-only OCTET STRING, column 4 a read-only
// TimeTicks (a discontinuity time per row, or an agent up time in a row of
// its own). Main thread only.
#ifndef TESTAGENT_TABLE_H
#define TESTAGENT_TABLE_H

#include <string>

// Registers the table in a context ("" is the default context); false if the
// registration fails. Registering a context twice is refused.
bool TA_RegisterContext(const std::string& strContext, std::string* pstrError);
// Runs one control command and writes the reply ("ok ..." or "error ...").
void TA_RunCommand(const std::string& strCommand, std::string* pstrReply);
// Set by the AgentX session callbacks; reported by "ping".
void TA_SetConnected(bool bConnected);

#endif  // TESTAGENT_TABLE_H
