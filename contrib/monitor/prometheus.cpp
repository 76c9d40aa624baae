#include "prometheus.h"

#include <sstream>
#include <string_view>

namespace {

struct Metrics {
  std::string labels;
  std::ostringstream text;
};

void add(Metrics& metrics, std::string_view name, std::string_view type, std::uint64_t value,
         std::string_view help)
{
  metrics.text << "# HELP kelvo_pwr_" << name << " " << help << "\n"
               << "# TYPE kelvo_pwr_" << name << " " << type << "\n"
               << "kelvo_pwr_" << name << metrics.labels << " " << value << "\n";
}

void addGauge(Metrics& metrics, std::string_view name, std::uint64_t value, std::string_view help)
{
  add(metrics, name, "gauge", value, help);
}

void addFlag(Metrics& metrics, std::string_view name, std::uint8_t value, std::string_view help)
{
  if (value != notAvailable) {
    addGauge(metrics, name, value, help);
  }
}

void addStatus(Metrics& metrics, const Status& status)
{
  const KelvoPowerStatus_struct& power = status.power;
  add(metrics, "waited_seconds_total", "counter", power.count,
      "Seconds that the daemon has waited since its start. "
      "Stands still when it is gone or hangs.");
  addFlag(metrics, "power_missing", power.missingPower, "1: AC power is missing.");
  addFlag(metrics, "battery_empty", power.batteryEmpty,
          "1: the battery has read empty without AC power. Stays 1 until the daemon starts again.");
  addFlag(metrics, "battery_bad", power.batteryBad,
          "1: the last battery test of this daemon failed. 0: it passed, or there was none.");
  addFlag(metrics, "testing", power.testing, "1: a battery test is running.");
  addFlag(metrics, "run_test", status.request.runTest,
          "1: a test if it is time for one was asked for and not taken yet.");
  addFlag(metrics, "run_test_now", status.request.runTestNow,
          "1: a test now was asked for and not taken yet.");
  addGauge(metrics, "test_duration_seconds", status.request.duration,
           "Length of the running or the next battery test. 0: the own setting of the daemon.");
}

void addLastTest(Metrics& metrics, const LastTest& test)
{
  if (test.isGood) {
    addGauge(metrics, "last_test_failed", *test.isGood ? 0 : 1,
             "1: the last battery test that ended failed, whichever daemon ran it. 0: it passed.");
  }
  if (test.start) {
    addGauge(metrics, "last_test_start_timestamp_seconds", *test.start,
             "When that test began, since the Unix epoch.");
  }
  if (test.end) {
    addGauge(metrics, "last_test_end_timestamp_seconds", *test.end,
             "When that test ended, since the Unix epoch.");
  }
  if (test.start && test.end) {
    addGauge(metrics, "last_test_length_seconds", *test.end - *test.start,
             "How long that test took.");
  }
}

}  // namespace

std::string prometheusText(const Observation& found, const LastTest& lastTest,
                           const std::string& board)
{
  Metrics metrics;
  if (!board.empty()) {
    metrics.labels = "{board=\"" + board + "\"}";
  }
  addGauge(metrics, "up", found.status ? 1 : 0,
           "1: the status could be read. A daemon that has died leaves its last status behind.");
  if (found.status) {
    addStatus(metrics, *found.status);
  }
  addLastTest(metrics, lastTest);
  if (found.testPeriod) {
    addGauge(metrics, "test_period_seconds", *found.testPeriod,
             "Least time from the start of one scheduled battery test to the next.");
  }
  return metrics.text.str();
}
