#include "prometheus.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

/// Without the lines that explain the metrics.
std::string samples(const Observation& found, const LastTest& lastTest,
                    const std::string& board = "")
{
  std::istringstream text(prometheusText(found, lastTest, board));
  std::string kept;
  for (std::string line; std::getline(text, line);) {
    if (line.front() != '#') {
      kept += line + "\n";
    }
  }
  return kept;
}

}  // namespace

TEST(PrometheusTextTest, WithoutAStatusThereIsNothingButThatAndWhatIsRemembered)
{
  EXPECT_EQ(prometheusText({}, {}, ""),
            "# HELP kelvo_pwr_up 1: the status could be read. "
            "A daemon that has died leaves its last status behind.\n"
            "# TYPE kelvo_pwr_up gauge\n"
            "kelvo_pwr_up 0\n");
  EXPECT_EQ(samples({}, {1000, 1600, false}),
            "kelvo_pwr_up 0\n"
            "kelvo_pwr_last_test_failed 1\n"
            "kelvo_pwr_last_test_start_timestamp_seconds 1000\n"
            "kelvo_pwr_last_test_end_timestamp_seconds 1600\n"
            "kelvo_pwr_last_test_length_seconds 600\n");
}

TEST(PrometheusTextTest, EachFieldWithTheBoardsName)
{
  Observation found;
  found.status = Status{{4'294'967'295, 1, 0, 1, 0}, {1, 0, 65535}};
  found.testPeriod = 4'294'967'295;
  EXPECT_EQ(samples(found, {}, "attic"),
            "kelvo_pwr_up{board=\"attic\"} 1\n"
            "kelvo_pwr_waited_seconds_total{board=\"attic\"} 4294967295\n"
            "kelvo_pwr_power_missing{board=\"attic\"} 1\n"
            "kelvo_pwr_battery_empty{board=\"attic\"} 0\n"
            "kelvo_pwr_battery_bad{board=\"attic\"} 1\n"
            "kelvo_pwr_testing{board=\"attic\"} 0\n"
            "kelvo_pwr_run_test{board=\"attic\"} 1\n"
            "kelvo_pwr_run_test_now{board=\"attic\"} 0\n"
            "kelvo_pwr_test_duration_seconds{board=\"attic\"} 65535\n"
            "kelvo_pwr_test_period_seconds{board=\"attic\"} 4294967295\n");
}

TEST(PrometheusTextTest, WhatIsNotKnownIsAbsent)
{
  Observation found;
  found.status = Status{{3, 0, notAvailable, notAvailable, notAvailable}, {}};
  EXPECT_EQ(samples(found, {std::nullopt, 1600, std::nullopt}),
            "kelvo_pwr_up 1\n"
            "kelvo_pwr_waited_seconds_total 3\n"
            "kelvo_pwr_power_missing 0\n"
            "kelvo_pwr_run_test 0\n"
            "kelvo_pwr_run_test_now 0\n"
            "kelvo_pwr_test_duration_seconds 0\n"
            "kelvo_pwr_last_test_end_timestamp_seconds 1600\n");
}

TEST(PrometheusTextTest, AGoodTestHasNotFailed)
{
  EXPECT_EQ(samples({}, {std::nullopt, std::nullopt, true}),
            "kelvo_pwr_up 0\nkelvo_pwr_last_test_failed 0\n");
}
