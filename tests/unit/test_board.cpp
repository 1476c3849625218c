// Board records and the board registry: what the constructors registered
// before main, selection by board id (including the unknown-id fallback),
// growing and destroying the registry, and its contract checks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "equ_board.h"

namespace {

constexpr uint32_t kB01 = 0x44130109, kB02 = 0x44130107, kB03 = 0x44130209, kB04 = 0x44130222;

// Tests that reshape the registry put the constructors' registry back
// afterwards, so the order of tests does not matter.
class Registry : public ::testing::Test {
  protected:
    void SetUp() override
    {
        saved.assign(gstEquBoardTbl.ppstBoardDesc,
                     gstEquBoardTbl.ppstBoardDesc + gstEquBoardTbl.u32Cnt);
    }
    void TearDown() override
    {
        EQU_BoardDescDestroy();
        if (!saved.empty()) {
            EQU_BOARD_TBL_S tbl = {saved.data(), uint32_t(saved.size())};
            ASSERT_EQ(EQU_BoardDescAdd(&tbl), 0u);
        }
    }
    std::vector<uint32_t> ids() const
    {
        std::vector<uint32_t> v;
        for (uint32_t i = 0; i < gstEquBoardTbl.u32Cnt; i++) {
            v.push_back(gstEquBoardTbl.ppstBoardDesc[i]->u32BoardId);
        }
        return v;
    }
    std::vector<EQU_BOARD_DESC_S *> saved;
};

// Constructors registered B03, B02, B01, B04, each record with tables of its
// own, so that adjusting one board's tables cannot change another's.
TEST_F(Registry, ConstructorsRegisterTheFourBoards)
{
    EXPECT_EQ(ids(), (std::vector<uint32_t>{kB03, kB02, kB01, kB04}));
    std::set<const void *> tables;
    for (const EQU_BOARD_DESC_S *d : saved) {
        for (const void *p : {(const void *)d->pucRs485Port2Tty, (const void *)d->pfnCmdTbl,
                              (const void *)d->pstLedList, (const void *)d->pstChipList}) {
            EXPECT_TRUE(tables.insert(p).second) << "table shared between records";
        }
    }
}

// A known id selects its record silently; an unknown one is reported but
// not refused, and the tool runs on the last record compared.
TEST_F(Registry, SelectionById)
{
    testing::internal::CaptureStdout();
    for (uint32_t id : {kB02, kB04, kB03, kB01}) {
        EQU_BOARD_DESC_S *d = nullptr;
        EXPECT_EQ(EQU_BoardDescCreat(id, &d), 0u);
        EXPECT_EQ(d ? d->u32BoardId : 0, id);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EQU_BOARD_DESC_S *d = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(EQU_BoardDescCreat(305419896, &d), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\r\nnot find board 0x12345678");
    EXPECT_EQ(d, saved.at(3));

    EQU_BoardDescDestroy();
    EXPECT_EQ(gstEquBoardTbl.ppstBoardDesc, nullptr);
    EXPECT_EQ(gstEquBoardTbl.u32Cnt, 0u);
    EQU_BOARD_DESC_S *untouched = d;
    testing::internal::CaptureStdout();
    EXPECT_EQ(EQU_BoardDescCreat(kB01, &untouched), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\r\nnot find board 0x44130109");
    EXPECT_EQ(untouched, d);
}

TEST_F(Registry, AddAppendsExactlyTheTablesRecordsInOrder)
{
    EQU_BOARD_DESC_S extra[2] = {};
    extra[0].u32BoardId = 7;
    extra[1].u32BoardId = 8;
    EQU_BOARD_DESC_S *ptrs[2] = {&extra[0], &extra[1]};
    EQU_BOARD_TBL_S tbl = {ptrs, 2};
    EXPECT_EQ(EQU_BoardDescAdd(&tbl), 0u);
    EXPECT_EQ(ids(), (std::vector<uint32_t>{kB03, kB02, kB01, kB04, 7, 8}));

    // A later record with a known id never shadows the first one.
    extra[1].u32BoardId = kB01;
    EQU_BOARD_DESC_S *d = nullptr;
    EXPECT_EQ(EQU_BoardDescCreat(kB01, &d), 0u);
    EXPECT_EQ(d, saved[2]);
}

// A count the registry cannot hold is refused like exhausted memory, and
// the registry stays as it was.
TEST_F(Registry, OversizedAddIsRefusedWithoutChange)
{
    EQU_BOARD_DESC_S *one = saved.at(0);
    EQU_BOARD_TBL_S tbl = {&one, UINT32_MAX};
    EQU_BOARD_DESC_S **before = gstEquBoardTbl.ppstBoardDesc;
    EXPECT_EQ(EQU_BoardDescAdd(&tbl), uint32_t(-12));
    EXPECT_EQ(gstEquBoardTbl.ppstBoardDesc, before);
    EXPECT_EQ(gstEquBoardTbl.u32Cnt, 4u);
}

// Both checks print fixed texts and lines, whatever the source file's shape.
TEST(RegistryDeathTest, AddChecksItsArguments)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(EQU_BoardDescAdd(nullptr),
                 testing::HasSubstr("src/equ_board.c:30: EQU_BoardDescAdd: Assertion "
                                    "`((void *)0) != (pstBoardTbl)' failed."));
    EQU_BOARD_TBL_S empty = {nullptr, 0};
    EXPECT_DEATH(EQU_BoardDescAdd(&empty),
                 testing::HasSubstr("src/equ_board.c:31: EQU_BoardDescAdd: Assertion "
                                    "`0 != pstBoardTbl->u32Cnt' failed."));
}

}  // namespace
