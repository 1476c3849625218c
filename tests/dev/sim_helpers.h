// Shared fixture of the device tests: a private, empty board state
// directory per test (ctest runs tests in parallel) and readers for the
// journal and state files.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class BoardTest : public ::testing::Test {
  protected:
    void SetUp() override
    {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::string(DEV_STATE_DIR) + "/" + info->test_suite_name() + "." + info->name();
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        use(dir_);
    }

    void use(const std::string &dir) { setenv("BOARDSIM_STATE", dir.c_str(), 1); }

    std::string read(const std::string &rel) const
    {
        std::ifstream in(dir_ + "/" + rel, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    void put(const std::string &rel, const std::string &text) const
    {
        std::filesystem::path p = dir_ + "/" + rel;
        std::filesystem::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << text;
    }

    std::string journal() const { return read("journal"); }

    bool logged(const std::string &line) const
    {
        // Each line ends with the time it was written: " at=SECONDS".
        return ("\n" + journal()).find("\n" + line + " at=") != std::string::npos;
    }

    int count(const std::string &part) const
    {
        std::string j = journal();
        int n = 0;
        for (size_t p = j.find(part); p != std::string::npos; p = j.find(part, p + 1))
            ++n;
        return n;
    }

    std::string dir_;
};
