// An installation with a task, and what its message log says.
#pragma once

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>

#include <cstdint>
#include <string>

#include "support/temp_installation.h"

namespace zvrtest {

class LaunchTest : public ::testing::Test {
 protected:
  LaunchTest() : task_(co_init_task("launcher", nullptr, 1)) {}
  ~LaunchTest() override { coi_term_task(task_, 0); }
  void SetUp() override { ASSERT_NE(nullptr, task_) << co_init_error(); }

  // Lines of the log with this message.
  unsigned logged(std::uint32_t number) const {
    const std::string log = installation_.read("log/messages.log");
    const std::string mark = "ZVR" + std::to_string(number);
    unsigned count = 0;
    for (std::size_t at = 0; (at = log.find(mark, at)) != std::string::npos; ++at) ++count;
    return count;
  }
  std::string log() const { return installation_.read("log/messages.log"); }

  zvrdb::test::TempInstallation installation_;
  void* task_;
};

}  // namespace zvrtest
