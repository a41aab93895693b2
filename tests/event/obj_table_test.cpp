// Objects table: the set paths with their codes and failed columns, the index
// order (lengths first for both strings), the stored records and recovery.
#include "event_test_util.h"

namespace {
class ObjTableTest : public EventFixture {};

struct OBJ_CASE_S {
    const char* pszName;
    bool bExisting;  // a row own/grp/1 with ID 1.3.6 exists before the request
    uint32_t uiStatus;
    FAKE_OID astId;
    uint32_t uiMask;
    uint32_t uiExpect;
    uint32_t uiFailedColumn;
    bool bRowAfter;
};

const OBJ_CASE_S kObjCases[] = {
    {"create without status column", false, 4, {1, 3, 6}, 0x08, 0x40010005, 5, false},
    {"create without ID column", false, 4, {1, 3, 6}, 0x20, 0x40010010, 3, false},
    {"create with status active", false, 1, {1, 3, 6}, 0x28, 0x40010010, 5, false},
    {"createAndGo", false, 4, {1, 3, 6}, 0x28, 0, 0, true},
    {"createAndWait makes an active row", false, 5, {1, 3, 6}, 0x28, 0, 0, true},
    {"notReady creates too", false, 3, {1, 3, 6}, 0x28, 0, 0, true},
    {"destroy of a missing row", false, 6, {}, 0x20, 0, 0, false},
    {"destroy", true, 6, {}, 0x20, 0, 0, false},
    {"same ID with status", true, 1, {1, 3, 6}, 0x28, 0x40010010, 0, true},
    {"other ID", true, 0, {1, 3, 7}, 0x08, 0x40010010, 0, true},
    {"status alone", true, 1, {}, 0x20, 0, 0, true},
    {"createAndGo on existing", true, 4, {}, 0x20, 0x40010006, 0, true},
    {"wildcard alone, same value", true, 0, {}, 0x10, 0x40010010, 0, true},
};

TEST_F(ObjTableTest, SetPathsGiveTheirCodesAndFailedColumns) {
    for (const OBJ_CASE_S& stCase : kObjCases) {
        SCOPED_TRACE(stCase.pszName);
        mte_OBJ_Fini();
        FAKE_DBM_Reset();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        if (stCase.bExisting) {
            ASSERT_EQ(SetObj(ObjReq("own", "grp", 1, 4, {1, 3, 6}), 0x28), 0u);
        }
        uint32_t uiFc = 0;
        EXPECT_EQ(SetObj(ObjReq("own", "grp", 1, stCase.uiStatus, stCase.astId, MTE_FALSE),
                         stCase.uiMask, &uiFc),
                  stCase.uiExpect);
        EXPECT_EQ(uiFc, stCase.uiFailedColumn);
        MTE_OBJ_ROW_S* pstRow = mte_OBJ_Get("own", "grp", 1);
        EXPECT_EQ(pstRow != nullptr, stCase.bRowAfter);
        auto astStored = FAKE_DBM_Records("mteObjects");
        ASSERT_EQ(astStored.size(), stCase.bRowAfter ? 1u : 0u);
        if (pstRow != nullptr) {
            EXPECT_EQ(pstRow->uiEntryStatus, 1u);
            EXPECT_EQ(pstRow->uiIDWildcard, 2u);
            EXPECT_EQ(FAKE_SNMP_ToVector(pstRow->stID), (FAKE_OID{1, 3, 6}));
            EXPECT_EQ(memcmp(astStored[0].data(), pstRow, sizeof(*pstRow)), 0);
        }
    }
}

TEST_F(ObjTableTest, IdLongerThanARecordIsRefusedBeforeCopying) {
    MTE_OBJ_ROW_S stReq = ObjReq("own", "grp", 1, 4);
    stReq.stID.uiLen = 129;
    uint32_t uiFc = 0;
    EXPECT_EQ(SetObj(stReq, 0x28, &uiFc), 0x40010010u);
    EXPECT_EQ(uiFc, 3u);
    EXPECT_EQ(mte_OBJ_Get("own", "grp", 1), nullptr);
    stReq.stID.uiLen = 128;
    EXPECT_EQ(SetObj(stReq, 0x28, &uiFc), 0u);
    stReq.stID.uiLen = 0xffffffffu;
    stReq.uiEntryStatus = 0;
    EXPECT_EQ(SetObj(stReq, 0x08, &uiFc), 0x40010010u);
    EXPECT_EQ(uiFc, 3u);
}

TEST_F(ObjTableTest, WildcardIsTakenOnlyWithItsColumn) {
    ASSERT_EQ(SetObj(ObjReq("o", "g", 1, 4, {1}, MTE_TRUE), 0x28), 0u);
    ASSERT_EQ(SetObj(ObjReq("o", "g", 2, 4, {1}, MTE_TRUE), 0x38), 0u);
    EXPECT_EQ(mte_OBJ_Get("o", "g", 1)->uiIDWildcard, 2u);
    EXPECT_EQ(mte_OBJ_Get("o", "g", 2)->uiIDWildcard, 1u);
    EXPECT_EQ(SetObj(ObjReq("o", "g", 2, 0, {1}, MTE_FALSE), 0x10), 0x40010010u);
}

TEST_F(ObjTableTest, MemoryAlertRefusesCreationOnlyWithoutTheForceBit) {
    RaiseMemoryAlert();
    EXPECT_EQ(SetObj(ObjReq("o", "g", 1, 4), 0x28), 0x4001000fu);
    EXPECT_EQ(mte_OBJ_IsEmpty(), 1u);
    EXPECT_EQ(SetObj(ObjReq("o", "g", 1, 4), 0x80000028u), 0u);
    EXPECT_EQ(mte_OBJ_IsEmpty(), 0u);
    EXPECT_EQ(SetObj(ObjReq("o", "g", 1, 6), 0x20), 0u);  // destroys are never refused
    EXPECT_EQ(mte_OBJ_IsEmpty(), 1u);
}

std::vector<std::string> Walk() {
    std::vector<std::string> astWalk;
    MTE_OBJ_ROW_S* pstRow = mte_OBJ_GetNext(0, "", 0, "", 0);
    while (pstRow != nullptr) {
        astWalk.push_back(std::string(pstRow->szOwner) + "/" + pstRow->szName + "/" +
                          std::to_string(pstRow->uiIndex));
        pstRow = mte_OBJ_GetNext(strlen(pstRow->szOwner), pstRow->szOwner, strlen(pstRow->szName),
                                 pstRow->szName, pstRow->uiIndex);
    }
    return astWalk;
}

TEST_F(ObjTableTest, IndexOrderPutsShorterOwnersAndNamesFirst) {
    for (const char* pszOwner : {"aa", "b"}) {
        for (const char* pszName : {"aa", "b"}) {
            for (uint32_t uiIndex : {3u, 1u, 2u}) {
                ASSERT_EQ(SetObj(ObjReq(pszOwner, pszName, uiIndex, 4), 0x28), 0u);
            }
        }
    }
    EXPECT_EQ(Walk(), (std::vector<std::string>{"b/b/1", "b/b/2", "b/b/3", "b/aa/1", "b/aa/2",
                                                "b/aa/3", "aa/b/1", "aa/b/2", "aa/b/3", "aa/aa/1",
                                                "aa/aa/2", "aa/aa/3"}));
    EXPECT_NE(mte_OBJ_Get("aa", "b", 2), nullptr);
    EXPECT_EQ(mte_OBJ_Get("aa", "b", 4), nullptr);
    // A key between rows: the lengths given stand for the key's.
    MTE_OBJ_ROW_S* pstRow = mte_OBJ_GetNext(1, "b", 1, "b", 0xffffffffu);
    ASSERT_NE(pstRow, nullptr);
    EXPECT_STREQ(pstRow->szName, "aa");
    EXPECT_EQ(mte_OBJ_GetNext(2, "aa", 2, "aa", 3), nullptr);
}

TEST_F(ObjTableTest, RecoveryRecreatesRowsInOrderWithoutWritingBack) {
    ASSERT_EQ(SetObj(ObjReq("o", "g", 2, 4, {1, 2}, MTE_TRUE), 0x38), 0u);
    ASSERT_EQ(SetObj(ObjReq("o", "g", 1, 5, {1, 1}), 0x28), 0u);
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    Restart();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);
    EXPECT_EQ(Walk(), (std::vector<std::string>{"o/g/1", "o/g/2"}));
    EXPECT_EQ(mte_OBJ_Get("o", "g", 2)->uiIDWildcard, 1u);
    EXPECT_EQ(mte_OBJ_Get("o", "g", 1)->uiEntryStatus, 1u);

    // A record already present, or a damaged one, is refused and reported.
    MTE_OBJ_ROW_S stAgain = *mte_OBJ_Get("o", "g", 1);
    MTE_OBJ_ROW_S stLong = ObjReq("o", "g", 9, 1);
    stLong.stID.uiLen = 200;
    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    mte_BIN_SetRecover(1);
    EXPECT_EQ(mte_OBJ_Recover(sizeof(stAgain), &stAgain), 0x40010006u);
    EXPECT_EQ(mte_OBJ_Recover(sizeof(stLong), &stLong), 0x40010010u);
    mte_BIN_SetRecover(0);
    EXPECT_EQ(Walk().size(), 2u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR",
                             "Failed to recover information about the Objects module from DBM."),
              2u);
}
}  // namespace
