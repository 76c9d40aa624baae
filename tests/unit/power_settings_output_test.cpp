// What help and -v print.

#include "config/power_settings.h"

#include "support/agent_fixture.h"
#include "support/loading.h"

TEST(HelpTest, ShowsTheGeneralOptionsAndTheSettings)
{
  PowerSettings settings;
  load(settings, {"-h"});
  bool wasAsked = false;
  const Recording recording = record([&] { wasAsked = settings.showHelp(); });
  EXPECT_TRUE(wasAsked);
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(recording.out,
            "Options:\n"
            "\n"
            "  -h [ --help ]                        Show help message\n"
            "  -v [ --verbose ]                     Verbose output\n"
            "  -c [ --conf ] arg                    Configuration file\n"
            "  -s [ --status ]                      Show status\n"
            "  -r [ --run-test ]                    Run test if it is correct time to test\n"
            "  -n [ --run-test-now ]                Run test immediatelly\n"
            "\n"
            "  --gpio.pwr-in arg (=PWR-IN)          GPIO input for AC power status\n"
            "  --gpio.at1 arg (=BAT-T1)             GPIO input for battery voltage < 10.8V\n"
            "  --gpio.at2 arg (=BAT-T2)             GPIO output to disconnect AC power\n"
            "  --gpio.bat-sw arg (=BAT-SW)          GPIO output to disconnect battery\n"
            "  --test.battery arg (=0)              Enable battery tests\n"
            "  --test.external-scheduling arg (=0)  Use external scheduler like cron\n"
            "  --test.period arg (=1209600)         Test period in seconds\n"
            "  --test.hour arg (=10)                Run test only in this hour, starting \n"
            "                                       from hh:00:00 until hh:59:59\n"
            "  --test.duration arg (=600)           Test duration in seconds\n"
            "  --test.init.disable arg (=600)       Testing disabled after boot in seconds\n"
            "  --test.shut.timeout arg (=120)       Timeout before starting shutdown \n"
            "                                       sequence\n"
            "  --test.shut.cmd arg (=reboot)        Command for shutdown: poweroff or reboot\n"
            "  --test.shut.cutoff arg (=120)        Wait before cutting off battery power \n"
            "                                       after shutdown command\n"
            "\n");
}

TEST(HelpTest, ShowsTheDeclaredDefaultsWhateverTheValues)
{
  PowerSettings plain;
  load(plain, {"-h"});
  PowerSettings changed;
  load(changed, {"-h", "--test.hour=3", "--test.battery=1", "--gpio.at1=x"});
  EXPECT_EQ(record([&] { changed.showHelp(); }).out, record([&] { plain.showHelp(); }).out);
}

TEST(HelpTest, IsSilentWhenNotAskedFor)
{
  PowerSettings settings;
  load(settings, {"-v"});
  bool wasAsked = true;
  const Recording recording = record([&] { wasAsked = settings.showHelp(); });
  EXPECT_FALSE(wasAsked);
  EXPECT_EQ(recording.out + recording.err, "");
}

TEST(ListingTest, HasSeventeenLinesInTheirOrder)
{
  PowerSettings settings;
  load(settings, {});
  const Recording recording = record([&] { settings.printSettings(); });
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(recording.out,
            "run-test                 : false\n"
            "run-test-now             : false\n"
            "gpio.pwr-in              : PWR-IN\n"
            "gpio.at1                 : BAT-T1\n"
            "gpio.at2                 : BAT-T2\n"
            "gpio.bat-sw              : BAT-SW\n"
            "test.battery             : false\n"
            "test.external_scheduling : false\n"
            "test.hour                : 10\n"
            "test.period              : 1209600 seconds\n"
            "test.duration            : 600 seconds\n"
            "test.init.disable        : 600 seconds\n"
            "test.shut.timeout        : 120 seconds\n"
            "test.shut.cutoff         : 120 seconds\n"
            "test.shut.cmd            : reboot\n"
            "startTimestamp           : 0\n"
            "endTimestamp             : 0\n");
}

TEST(ListingTest, ShowsTheEffectiveValues)
{
  const TempFolder folder;
  const std::string path =
      folder.file("conf", "result.start=18446744073709551615\nresult.end=9223372036854775808\n");
  PowerSettings settings;
  load(settings, {"-r", "-n", "--gpio.pwr-in=a", "--gpio.at1=b", "--gpio.at2=c", "--gpio.bat-sw=d",
                  "--test.battery=1", "--test.external-scheduling=1", "--test.hour=-5",
                  "--test.period=4294967295", "--test.duration=65535", "--test.init.disable=40000",
                  "--test.shut.timeout=2147483648", "--test.shut.cutoff=2147483647",
                  "--test.shut.cmd=poweroff", "-c", path});
  EXPECT_EQ(record([&] { settings.printSettings(); }).out,
            "run-test                 : true\n"
            "run-test-now             : true\n"
            "gpio.pwr-in              : a\n"
            "gpio.at1                 : b\n"
            "gpio.at2                 : c\n"
            "gpio.bat-sw              : d\n"
            "test.battery             : true\n"
            "test.external_scheduling : true\n"
            "test.hour                : -5\n"
            "test.period              : -1 seconds\n"
            "test.duration            : 65535 seconds\n"
            "test.init.disable        : 40000 seconds\n"
            "test.shut.timeout        : -2147483648 seconds\n"
            "test.shut.cutoff         : 2147483647 seconds\n"
            "test.shut.cmd            : poweroff\n"
            "startTimestamp           : 18446744073709551615\n"
            "endTimestamp             : 9223372036854775808\n");
}
