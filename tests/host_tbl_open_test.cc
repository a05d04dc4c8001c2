// How the table service opens a store file: only a writer creates one; a
// reader of a missing store gets nothing made, and a read-only connection
// reads what writers wrote and refuses every write.
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_store.h"

namespace {

namespace fs = std::filesystem;

class StoreOpen : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/l3mac-open-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        path_ = dir_ + "/var/run/hnx/store-16.db";
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    std::string dir_, path_;
};

TEST_F(StoreOpen, OnlyAWriterCreatesTheFile) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(tbl_store::open(16, path_, tbl_open::read_only), nullptr);
    EXPECT_EQ(tbl_store::open(16, path_, tbl_open::existing), nullptr);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("ss_rt_tbl: store 16 (" + path_ + "): open: "), std::string::npos) << said;
    EXPECT_FALSE(fs::exists(dir_ + "/var"));
    EXPECT_NE(tbl_store::open(16, path_), nullptr);
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(StoreOpen, AReadOnlyConnectionReadsAndNeverWrites) {
    const tbl_bytes key{1}, row{1, 2, 3};
    bool changed = false, found = false;
    {
        auto writer = tbl_store::open(16, path_);
        ASSERT_NE(writer, nullptr);
        ASSERT_EQ(writer->put("t", key, row, &changed), 0);
    }
    auto reader = tbl_store::open(16, path_, tbl_open::read_only);
    ASSERT_NE(reader, nullptr);
    tbl_bytes got;
    ASSERT_EQ(reader->get("t", key, &got, &found), 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(got, row);
    testing::internal::CaptureStderr();
    EXPECT_EQ(reader->put("t", tbl_bytes{2}, row, &changed), -11);
    EXPECT_EQ(reader->erase("t", key, key, &changed), -11);
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(reader->get("t", key, &got, &found), 0);
    EXPECT_TRUE(found);
}

// The process-wide mode reaches the stores that the table service opens.
TEST_F(StoreOpen, TheProcessModeGovernsTheServicesStores) {
    hnx_host_set_root(dir_);
    hnx_host_tbl_reset();
    tbl_set_open_mode(tbl_open::read_only);
    testing::internal::CaptureStderr();
    EXPECT_EQ(tbl_store_of(16), nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(tbl_store_path(16), path_);
    EXPECT_FALSE(fs::exists(path_));
    hnx_host_tbl_reset();  // back to the default, which creates
    EXPECT_NE(tbl_store_of(16), nullptr);
    EXPECT_TRUE(fs::exists(path_));
    hnx_host_tbl_reset();
}

}  // namespace
