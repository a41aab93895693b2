// Get-next through the dispatcher against the real tables on the in-memory
// store: walks of all nine tables, with rows inserted and destroyed in the
// middle and a table's rows taken away, against a walk computed from the rows
// (index order, the end of a table told from an empty one by the presence
// flags, the walk's resume hint); and the cost of a long walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "fake_dbm.h"
#include "mte_cfg.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_msg.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_trigger.h"

namespace {

class ChannelDispatchTest : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        ASSERT_EQ(mte_SCALAR_Init(), 0u);
    }
    void TearDown() override {
        mte_OBJ_Fini();
        mte_EVENT_Fini();
        mte_TRIGGER_Fini();
        mte_DBM_Fini();
        mte_DBG_Fini();
    }

    // One request through the dispatcher; the reply is parsed into stReply.
    uint32_t Send(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem,
                  const void* pValue) {
        uint8_t aucRequest[MTE_MSG_MAX_LEN];
        uint32_t uiLen = MTE_MSG_BuildRequest(++uiSeq, usType, usOp, uiMask, usItem, pValue,
                                              aucRequest, sizeof(aucRequest));
        EXPECT_NE(uiLen, 0u);
        vecReply.assign(MTE_MSG_MAX_LEN, 0);
        uint32_t uiReplyLen = mte_CFG_Proc(aucRequest, uiLen, MTE_MSG_MAX_LEN, vecReply.data());
        EXPECT_EQ(MTE_MSG_ParseReply(vecReply.data(), uiReplyLen, &stReply), MTE_OK);
        EXPECT_EQ(stReply.uiSequence, uiSeq);
        return stReply.uiResult;
    }

    uint32_t CreateTrigger(const char* pszOwner, const char* pszName, uint8_t ucTest) {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, pszOwner);
        strcpy(stRow.szName, pszName);
        stRow.stValueID.uiLen = 2;
        stRow.stValueID.auiOid[0] = 1;
        stRow.stValueID.auiOid[1] = 3;
        stRow.uiFrequency = 60;
        stRow.ucTest = ucTest & ~MTE_PRESENT_DELTA;  // the delta bit asks for delta sampling
        stRow.uiSampleType = (ucTest & MTE_PRESENT_DELTA) != 0 ? MTE_SAMPLE_DELTA : 1;
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        return Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET,
                    MTE_COLUMN_BIT(MTE_TRIGGER_COL_SAMPLE_TYPE) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_FREQUENCY) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_EXISTENCE) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_BOOLEAN) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_THRESHOLD) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS),
                    MTE_ITEM_TRIGGER, &stRow);
    }

    uint32_t NextAfter(uint16_t usType, const char* pszOwner, const char* pszName) {
        MTE_INDEX_KEY_S stKey{};
        stKey.uiOwnerLen = static_cast<uint32_t>(strlen(pszOwner));
        strcpy(stKey.szOwner, pszOwner);
        strcpy(stKey.szName, pszName);
        bool bEventSide = usType >= MTE_MSG_TYPE_EVENT && usType <= MTE_MSG_TYPE_SET;
        uint16_t usKey = bEventSide ? MTE_ITEM_EVENT_KEY : MTE_ITEM_TRIGGER_KEY;
        return Send(usType, MTE_MSG_OP_GET_NEXT, 0, usKey, &stKey);
    }

    std::string RowOwner(size_t uiOffset) const {
        return reinterpret_cast<const char*>(stReply.pucData + uiOffset);
    }

    uint32_t uiSeq = 0;
    std::vector<uint8_t> vecReply;
    MTE_MSG_REPLY_S stReply{};
};

// ---- walks of the nine tables against a reference computed from the rows ----

enum Parent { kTriggers, kEvents, kObjects };

struct WalkTable {
    const char* pszName;
    uint16_t usType;
    Parent eParent;
    uint8_t ucKind;  // the parent's bit that gives it a row here; 0: every parent row
    size_t uiOwnerOff;
    size_t uiNameOff;
};

const WalkTable kWalkTables[] = {
    {"trigger", MTE_MSG_TYPE_TRIGGER, kTriggers, 0, offsetof(MTE_TRIGGER_ROW_S, szOwner),
     offsetof(MTE_TRIGGER_ROW_S, szName)},
    {"boolean", MTE_MSG_TYPE_BOOLEAN, kTriggers, MTE_TEST_BOOLEAN,
     offsetof(MTE_BOOL_ENTRY_S, szOwner), offsetof(MTE_BOOL_ENTRY_S, szName)},
    {"existence", MTE_MSG_TYPE_EXISTENCE, kTriggers, MTE_TEST_EXISTENCE,
     offsetof(MTE_EXIST_ENTRY_S, szOwner), offsetof(MTE_EXIST_ENTRY_S, szName)},
    {"threshold", MTE_MSG_TYPE_THRESHOLD, kTriggers, MTE_TEST_THRESHOLD,
     offsetof(MTE_THRES_ENTRY_S, szOwner), offsetof(MTE_THRES_ENTRY_S, szName)},
    {"delta", MTE_MSG_TYPE_DELTA, kTriggers, MTE_PRESENT_DELTA,
     offsetof(MTE_DELTA_ENTRY_S, szOwner), offsetof(MTE_DELTA_ENTRY_S, szName)},
    {"objects", MTE_MSG_TYPE_OBJECTS, kObjects, 0, offsetof(MTE_OBJ_ROW_S, szOwner),
     offsetof(MTE_OBJ_ROW_S, szName)},
    {"event", MTE_MSG_TYPE_EVENT, kEvents, 0, offsetof(MTE_EVENT_ROW_S, szOwner),
     offsetof(MTE_EVENT_ROW_S, szName)},
    {"notification", MTE_MSG_TYPE_NOTIFY, kEvents, MTE_ACTION_NOTIFICATION,
     offsetof(MTE_NOTIFY_ENTRY_S, szOwner), offsetof(MTE_NOTIFY_ENTRY_S, szName)},
    {"set", MTE_MSG_TYPE_SET, kEvents, MTE_ACTION_SET, offsetof(MTE_SET_ENTRY_S, szOwner),
     offsetof(MTE_SET_ENTRY_S, szName)},
};

struct ModelRow {
    std::string strOwner;
    std::string strName;
    uint32_t uiIndex;
    uint8_t ucBits;
};

// The index order of each parent list: owners by length, then bytes; trigger
// and event names by bytes alone, objects names by length first.
auto OrderKey(Parent eParent, const ModelRow& st) {
    bool bObjects = eParent == kObjects;
    return std::make_tuple(st.strOwner.size(), st.strOwner, bObjects ? st.strName.size() : 0,
                           st.strName, bObjects ? st.uiIndex : 0);
}

class DispatchWalkTest : public ChannelDispatchTest,
                         public ::testing::WithParamInterface<WalkTable> {
  protected:
    bool InTable(const ModelRow& st) const {
        return GetParam().ucKind == 0 || (st.ucBits & GetParam().ucKind) != 0;
    }

    // The parent request that creates (status 5 or 4), destroys (6) or, with
    // status 0, rewrites the sub-row bits of one row.
    uint32_t Write(const ModelRow& st, uint32_t uiStatus) {
        Parent eParent = GetParam().eParent;
        if (eParent == kTriggers) {
            if (uiStatus == MTE_ROW_CREATE_AND_WAIT) {
                return CreateTrigger(st.strOwner.c_str(), st.strName.c_str(), st.ucBits);
            }
            MTE_TRIGGER_ROW_S stRow{};
            strcpy(stRow.szOwner, st.strOwner.c_str());
            strcpy(stRow.szName, st.strName.c_str());
            stRow.uiEntryStatus = uiStatus;
            stRow.ucTest = st.ucBits & ~MTE_PRESENT_DELTA;
            stRow.uiSampleType = (st.ucBits & MTE_PRESENT_DELTA) != 0 ? MTE_SAMPLE_DELTA : 1;
            uint32_t uiMask = uiStatus != 0 ? MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS)
                                            : MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_EXISTENCE) |
                                                  MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_BOOLEAN) |
                                                  MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_THRESHOLD) |
                                                  MTE_COLUMN_BIT(MTE_TRIGGER_COL_SAMPLE_TYPE);
            return Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, uiMask, MTE_ITEM_TRIGGER, &stRow);
        }
        if (eParent == kEvents) {
            MTE_EVENT_ROW_S stRow{};
            strcpy(stRow.szOwner, st.strOwner.c_str());
            strcpy(stRow.szName, st.strName.c_str());
            stRow.uiEntryStatus = uiStatus;
            stRow.ucActions = st.ucBits;
            uint32_t uiMask = MTE_COLUMN_BIT(MTE_EVENT_COL_ACTION_SET) |
                              MTE_COLUMN_BIT(MTE_EVENT_COL_ACTION_NOTIFICATION) |
                              (uiStatus != 0 ? MTE_COLUMN_BIT(MTE_EVENT_COL_ENTRY_STATUS) : 0);
            return Send(MTE_MSG_TYPE_EVENT, MTE_MSG_OP_SET, uiMask, MTE_ITEM_EVENT, &stRow);
        }
        MTE_OBJ_ROW_S stRow{};
        strcpy(stRow.szOwner, st.strOwner.c_str());
        strcpy(stRow.szName, st.strName.c_str());
        stRow.uiIndex = st.uiIndex;
        stRow.stID.uiLen = 2;
        stRow.stID.auiOid[0] = 1;
        stRow.uiEntryStatus = uiStatus;
        return Send(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_SET,
                    MTE_COLUMN_BIT(MTE_OBJ_COL_ID) | MTE_COLUMN_BIT(MTE_OBJ_COL_ENTRY_STATUS),
                    MTE_ITEM_OBJECTS, &stRow);
    }

    void Add(const ModelRow& st) {
        ASSERT_EQ(Write(st, MTE_ROW_CREATE_AND_WAIT), MTE_OK) << st.strOwner << "/" << st.strName;
        vecRows.push_back(st);
    }
    void Destroy(size_t i) {
        ASSERT_EQ(Write(vecRows[i], MTE_ROW_DESTROY), MTE_OK);
        vecRows.erase(vecRows.begin() + i);
    }
    // Takes this table's row away from every parent row (objects: destroys them).
    void DropAll() {
        if (GetParam().eParent == kObjects || GetParam().ucKind == 0) {
            while (!vecRows.empty()) {
                Destroy(0);
            }
            return;
        }
        for (ModelRow& st : vecRows) {
            st.ucBits &= ~GetParam().ucKind;
            ASSERT_EQ(Write(st, 0), MTE_OK);
        }
    }

    // One get-next through the dispatcher; the row's index, or "" with the code.
    std::string Next(const ModelRow& stKey, uint32_t* puiCode) {
        if (GetParam().eParent == kObjects) {
            MTE_OBJ_INDEX_KEY_S stObjKey{};
            stObjKey.uiOwnerLen = static_cast<uint32_t>(stKey.strOwner.size());
            stObjKey.uiNameLen = static_cast<uint32_t>(stKey.strName.size());
            stObjKey.uiIndex = stKey.uiIndex;
            strcpy(stObjKey.szOwner, stKey.strOwner.c_str());
            strcpy(stObjKey.szName, stKey.strName.c_str());
            *puiCode =
                Send(GetParam().usType, MTE_MSG_OP_GET_NEXT, 0, MTE_ITEM_OBJECTS_KEY, &stObjKey);
        } else {
            *puiCode = NextAfter(GetParam().usType, stKey.strOwner.c_str(), stKey.strName.c_str());
        }
        if (*puiCode != MTE_OK) {
            return "";
        }
        std::string strIndex =
            RowOwner(GetParam().uiOwnerOff) + "/" + RowOwner(GetParam().uiNameOff);
        if (GetParam().eParent == kObjects) {
            uint32_t uiIndex = 0;
            memcpy(&uiIndex, stReply.pucData + offsetof(MTE_OBJ_ROW_S, uiIndex), sizeof(uiIndex));
            strIndex += "/" + std::to_string(uiIndex);
        }
        return strIndex;
    }

    // What the table holds after the key: the same string as Next, or "" with
    // the end or empty code.
    std::string Expected(const ModelRow& stKey, uint32_t* puiCode) const {
        Parent eParent = GetParam().eParent;
        const ModelRow* pstBest = nullptr;
        bool bAny = false;
        for (const ModelRow& st : vecRows) {
            if (!InTable(st)) {
                continue;
            }
            bAny = true;
            if (OrderKey(eParent, st) > OrderKey(eParent, stKey) &&
                (pstBest == nullptr || OrderKey(eParent, st) < OrderKey(eParent, *pstBest))) {
                pstBest = &st;
            }
        }
        if (pstBest == nullptr) {
            *puiCode = bAny ? MTE_ERR_NO_SUCH_ROW : MTE_ERR_TABLE_EMPTY;
            return "";
        }
        *puiCode = MTE_OK;
        std::string strIndex = pstBest->strOwner + "/" + pstBest->strName;
        return eParent == kObjects ? strIndex + "/" + std::to_string(pstBest->uiIndex) : strIndex;
    }

    std::vector<ModelRow> vecRows;
};

TEST_P(DispatchWalkTest, WalkMatchesTheRowsThroughInsertsAndDestroysMidWalk) {
    const char* apszOwners[] = {"b", "aa", "ab", "owner-of-thirty-two-characters-x"};
    const char* apszNames[] = {"x", "xy", "aa", "b", "n", "name-of-thirty-one-characters-"};
    uint8_t ucBits = 0;
    for (const char* pszOwner : apszOwners) {
        for (const char* pszName : apszNames) {
            ucBits = static_cast<uint8_t>((ucBits + 0x20) & 0xe0);
            // Triggers: the test bits, and every third row samples deltas.
            uint8_t ucRowBits = GetParam().eParent == kEvents
                                    ? (ucBits & 0xc0)
                                    : ucBits | (vecRows.size() % 3 == 0 ? MTE_PRESENT_DELTA : 0);
            Add({pszOwner, pszName, 1, ucRowBits});
            if (GetParam().eParent == kObjects) {
                Add({pszOwner, pszName, 7, 0});
            }
        }
    }
    const uint8_t ucAll = GetParam().eParent == kEvents ? 0xc0 : 0xf0;
    for (int iRound = 0; iRound < 2; ++iRound) {
        SCOPED_TRACE(iRound);
        ModelRow stKey{"", "", 0, 0};
        for (int iStep = 0;; ++iStep) {
            if (iRound == 0 && iStep == 2) {
                Add({"a", "before-every-row", 1, ucAll});  // before the key, with every sub-row
            } else if (iRound == 0 && iStep == 3) {
                for (size_t i = 0; i < vecRows.size(); ++i) {
                    if (OrderKey(GetParam().eParent, vecRows[i]) ==
                        OrderKey(GetParam().eParent, stKey)) {
                        Destroy(i);  // the key's own row
                        break;
                    }
                }
            } else if (iRound == 0 && iStep == 4) {
                Add({stKey.strOwner, stKey.strName + "0", stKey.uiIndex, ucAll});  // just after
            } else if (iRound == 1 && iStep == 5) {
                DropAll();
            }
            uint32_t uiExpectedCode = 0;
            uint32_t uiCode = 0;
            std::string strExpected = Expected(stKey, &uiExpectedCode);
            std::string strGot = Next(stKey, &uiCode);
            ASSERT_EQ(strGot, strExpected) << "step " << iStep;
            ASSERT_EQ(uiCode, uiExpectedCode) << "step " << iStep;
            if (uiCode != MTE_OK) {
                break;
            }
            size_t uiFirst = strGot.find('/');
            size_t uiSecond = strGot.find('/', uiFirst + 1);
            stKey.strOwner = strGot.substr(0, uiFirst);
            stKey.strName = strGot.substr(uiFirst + 1, uiSecond - uiFirst - 1);
            stKey.uiIndex =
                uiSecond == std::string::npos ? 0 : std::stoul(strGot.substr(uiSecond + 1));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryTable, DispatchWalkTest, ::testing::ValuesIn(kWalkTables),
                         [](const auto& stInfo) { return std::string(stInfo.param.pszName); });

// A full walk costs time linear in the rows, like creating them: get-next
// starts where the last one ended instead of at the head of the list (which
// made a walk of 20,000 triggers take seconds).
TEST_F(ChannelDispatchTest, WalkOfManyTriggersCostsLessThanCreatingThem) {
    const int kRows = 20000;
    auto tStart = std::chrono::steady_clock::now();
    char szName[16];
    for (int i = 0; i < kRows; ++i) {
        snprintf(szName, sizeof(szName), "t%06d", i);
        ASSERT_EQ(CreateTrigger(i % 2 ? "bb" : "a", szName, MTE_TEST_BOOLEAN), MTE_OK);
    }
    auto tCreated = std::chrono::steady_clock::now();
    std::string strOwner, strName;
    int iSeen = 0;
    while (NextAfter(MTE_MSG_TYPE_BOOLEAN, strOwner.c_str(), strName.c_str()) == MTE_OK) {
        strOwner = RowOwner(offsetof(MTE_BOOL_ENTRY_S, szOwner));
        strName = RowOwner(offsetof(MTE_BOOL_ENTRY_S, szName));
        ++iSeen;
    }
    auto tWalked = std::chrono::steady_clock::now();
    EXPECT_EQ(iSeen, kRows);
    EXPECT_LT(tWalked - tCreated, tCreated - tStart);
}

}  // namespace
