// Fake system log: captures every line in memory so tests can look at them.
#ifndef FAKE_LOG_H
#define FAKE_LOG_H

#include <cstdint>
#include <string>
#include <vector>

struct FAKE_LOG_LINE_S {
    uint32_t uiPriority;
    std::string strIdent;
    std::string strMnemonic;
    std::string strText;
};

std::vector<FAKE_LOG_LINE_S> FAKE_LOG_Lines(void);
void FAKE_LOG_Clear(void);
// Lines with the mnemonic whose text contains the fragment.
size_t FAKE_LOG_Count(const std::string& strMnemonic, const std::string& strFragment = "");

#endif  // FAKE_LOG_H
