// Fake service manager: records every status report and answers with a
// result the test chooses.
#ifndef FAKE_SERVICE_H
#define FAKE_SERVICE_H

#include <cstdint>
#include <vector>

std::vector<uint32_t> FAKE_SERVICE_Statuses(void);
// The result SERVICE_SetStatus returns from now on (0 at start).
void FAKE_SERVICE_SetResult(uint32_t uiResult);
void FAKE_SERVICE_Clear(void);

#endif  // FAKE_SERVICE_H
