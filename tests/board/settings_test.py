"""Words, files and what the program makes of them."""

import pytest

from rig import NO_RESULT_FILE, PROGRAM

from guest.process import run

HELP = """\
Options:

  -h [ --help ]                        Show help message
  -v [ --verbose ]                     Verbose output
  -c [ --conf ] arg                    Configuration file
  -s [ --status ]                      Show status
  -r [ --run-test ]                    Run test if it is correct time to test
  -n [ --run-test-now ]                Run test immediatelly

  --gpio.pwr-in arg (=PWR-IN)          GPIO input for AC power status
  --gpio.at1 arg (=BAT-T1)             GPIO input for battery voltage < 10.8V
  --gpio.at2 arg (=BAT-T2)             GPIO output to disconnect AC power
  --gpio.bat-sw arg (=BAT-SW)          GPIO output to disconnect battery
  --test.battery arg (=0)              Enable battery tests
  --test.external-scheduling arg (=0)  Use external scheduler like cron
  --test.period arg (=1209600)         Test period in seconds
  --test.hour arg (=10)                Run test only in this hour, starting 
                                       from hh:00:00 until hh:59:59
  --test.duration arg (=600)           Test duration in seconds
  --test.init.disable arg (=600)       Testing disabled after boot in seconds
  --test.shut.timeout arg (=120)       Timeout before starting shutdown 
                                       sequence
  --test.shut.cmd arg (=reboot)        Command for shutdown: poweroff or reboot
  --test.shut.cutoff arg (=120)        Wait before cutting off battery power 
                                       after shutdown command

"""

DEFAULTS = {
    "run-test": "false",
    "run-test-now": "false",
    "gpio.pwr-in": "PWR-IN",
    "gpio.at1": "BAT-T1",
    "gpio.at2": "BAT-T2",
    "gpio.bat-sw": "BAT-SW",
    "test.battery": "false",
    "test.external_scheduling": "false",
    "test.hour": "10",
    "test.period": "1209600 seconds",
    "test.duration": "600 seconds",
    "test.init.disable": "600 seconds",
    "test.shut.timeout": "120 seconds",
    "test.shut.cutoff": "120 seconds",
    "test.shut.cmd": "reboot",
    "startTimestamp": "0",
    "endTimestamp": "0",
}


def listing(**changes):
    """The listing with other values than the defaults; _ stands for . and __ for -."""
    values = dict(DEFAULTS)
    for key, value in changes.items():
        name = key.replace("__", "-").replace("_", ".")
        name = {"test.external.scheduling": "test.external_scheduling"}.get(name, name)
        assert name in values
        values[name] = value
    return "".join(f"{name:24} : {value}\n" for name, value in values.items())


@pytest.fixture
def list_settings(rig):
    """Lists the settings; there is no segment, so that a status client ends after that."""

    def run_client(*words, expected_output=""):
        result = run([PROGRAM, "-v", "-s", *words])
        assert result.status == 1
        # With a result file in the configuration there is no word about that.
        reasons = ("No such file or directory\n", NO_RESULT_FILE + "No such file or directory\n")
        assert result.stderr in reasons
        assert result.stdout.startswith(expected_output)
        return result.stdout.removeprefix(expected_output)

    return run_client


@pytest.fixture
def file(rig):
    def write(content, name="a.conf"):
        path = rig.folder / name
        path.write_text(content)
        return str(path)

    return write


def test_help(rig):
    for word in ("-h", "--help", "--he"):
        assert run([PROGRAM, word]) == (HELP, NO_RESULT_FILE, 0)


def test_the_defaults(list_settings):
    assert list_settings() == listing()


def test_every_setting_from_the_command_line(list_settings):
    words = (
        "--gpio.pwr-in=a --gpio.at1 b --gpio.at2=c --gpio.bat-sw=d --test.battery=1 "
        "--test.external-scheduling yes --test.hour=-3 --test.period=1 --test.duration=2 "
        "--test.init.disable=3 --test.shut.timeout=4 --test.shut.cutoff=5 "
        "--test.shut.cmd=poweroff -r -n"
    )
    assert list_settings(*words.split()) == listing(
        run__test="true",
        run__test__now="true",
        gpio_pwr__in="a",
        gpio_at1="b",
        gpio_at2="c",
        gpio_bat__sw="d",
        test_battery="true",
        test_external_scheduling="true",
        test_hour="-3",
        test_period="1 seconds",
        test_duration="2 seconds",
        test_init_disable="3 seconds",
        test_shut_timeout="4 seconds",
        test_shut_cutoff="5 seconds",
        test_shut_cmd="poweroff",
    )


def test_numbers_above_2147483647_are_listed_as_negative(list_settings):
    assert list_settings(
        "--test.period=4294967295", "--test.shut.timeout=2147483648", "--test.duration=65535"
    ) == listing(
        test_period="-1 seconds",
        test_shut_timeout="-2147483648 seconds",
        test_duration="65535 seconds",
    )


def test_a_negative_number_wraps_in_an_unsigned_setting(list_settings):
    assert list_settings("--test.duration=-1", "--test.period=-1") == listing(
        test_duration="65535 seconds", test_period="-1 seconds"
    )


@pytest.mark.parametrize(
    "words",
    [
        ["-vs"],
        ["--verb", "--stat"],
        ["-v", "-s", "stray", "words"],
    ],
    ids=["grouped", "abbreviated", "with stray words"],
)
def test_other_ways_to_say_it(rig, words):
    result = run([PROGRAM, *words])
    assert result.stdout == listing()
    assert result.stderr == NO_RESULT_FILE + "No such file or directory\n"


@pytest.mark.parametrize(
    "words, error",
    [
        (["--nonsense"], "unrecognised option '--nonsense'"),
        (["-x"], "unrecognised option '-x'"),
        (["--sys.save.path=/tmp/x"], "unrecognised option '--sys.save.path=/tmp/x'"),
        (["--sys.board.path=/x"], "unrecognised option '--sys.board.path=/x'"),
        (["--result.start=1"], "unrecognised option '--result.start=1'"),
        (["--result.end=1"], "unrecognised option '--result.end=1'"),
        (["--test.battery"], "the required argument for option '--test.battery' is missing"),
        (["-c"], "the required argument for option '--conf' is missing"),
        (
            ["--test.battery=maybe"],
            "the argument ('maybe') for option '--test.battery' is invalid. "
            "Valid choices are 'on|off', 'yes|no', '1|0' and 'true|false'",
        ),
        (["--test.hour=ten"], "the argument ('ten') for option '--test.hour' is invalid"),
        (["--test.hour=2147483648"], "the argument ('2147483648') for option '--test.hour' is invalid"),
        (["--test.duration=65536"], "the argument ('65536') for option '--test.duration' is invalid"),
        (["--test.duration=5s"], "the argument ('5s') for option '--test.duration' is invalid"),
        (["--test.init.disable=65536"], "the argument ('65536') for option '--test.init.disable' is invalid"),
        (["--test.period=4294967296"], "the argument ('4294967296') for option '--test.period' is invalid"),
        (["--test.shut.timeout=1.5"], "the argument ('1.5') for option '--test.shut.timeout' is invalid"),
        (["--test.shut.cutoff=x"], "the argument ('x') for option '--test.shut.cutoff' is invalid"),
        (["--test.period=%value%"], "the argument ('%value%') for option '--test.period' is invalid"),
        (["--status=1"], "option '--status' does not take any arguments"),
        (["-v", "-v"], "option '--verbose' cannot be specified more than once"),
        (["--test.hour=1", "--test.hour=2"], "option '--test.hour' cannot be specified more than once"),
        (
            ["--test=1"],
            "option '--test=1' is ambiguous and matches '--test.battery', '--test.duration', "
            "'--test.external-scheduling', '--test.hour', '--test.init.disable', "
            "'--test.period', '--test.shut.cmd', '--test.shut.cutoff', and "
            "'--test.shut.timeout'",
        ),
        (["--help", "--nonsense"], "unrecognised option '--nonsense'"),
        (["-c", "missing.conf"], "Cant read conf: missing.conf"),
        (["--help", "-c", "missing.conf"], "Cant read conf: missing.conf"),
    ],
)
def test_refused_words(rig, words, error):
    assert run([PROGRAM, *words], directory=str(rig.folder)) == ("", error + "\n", 1)


def test_the_first_source_wins(list_settings, file):
    first = file("test.duration=1\ntest.period=1\nresult.start=1\n", "first.conf")
    second = file("test.duration=2\ntest.period=2\ntest.hour=2\nresult.end=2\n", "second.conf")
    assert list_settings("-c", first, "-c", second, "--test.duration=3") == listing(
        test_duration="3 seconds",
        test_period="1 seconds",
        test_hour="2",
        startTimestamp="1",
        endTimestamp="2",
    )


def test_a_later_file_is_not_read_after_one_that_is_missing(rig, file):
    bad = file("test.hour=x\n")
    result = run([PROGRAM, "-c", "/missing.conf", "-c", bad])
    assert result == ("", "Cant read conf: /missing.conf\n", 1)


def test_a_file_s_own_ways(list_settings, file):
    path = file(
        "# comment\n"
        "\n"
        "  gpio.at1 =  two words  \n"
        "gpio.at2=x # the rest is comment\n"
        "test.battery=\n"
        "[test]\n"
        "duration=300\n"
        "shut.timeout=7\n"
        "[gpio]\n"
        "pwr-in=P\n"
    )
    assert list_settings("-c", path) == listing(
        gpio_at1="two words",
        gpio_at2="x",
        test_battery="true",
        test_duration="300 seconds",
        test_shut_timeout="7 seconds",
        gpio_pwr__in="P",
    )


@pytest.mark.parametrize("word", ["true", "yes", "on", "1", "TRUE", "Yes", "oN"])
def test_words_for_true(list_settings, word):
    assert list_settings(f"--test.battery={word}") == listing(test_battery="true")


@pytest.mark.parametrize("word", ["false", "no", "off", "0", "FALSE"])
def test_words_for_false(list_settings, file, word):
    path = file("test.battery=true\n")
    assert list_settings("-c", path, f"--test.battery={word}") == listing()


def test_unknown_keys_of_a_file_are_reported_and_ignored(list_settings, file):
    path = file("foo.bar=1\nconf=x\ntest.hour=3\nverbose=true\n[sys]\nnope=\n")
    reports = "".join(
        f"Unknown option in {path}: {key}\n" for key in ("foo.bar", "conf", "verbose", "sys.nope")
    )
    assert list_settings("-c", path, expected_output=reports) == listing(test_hour="3")


@pytest.mark.parametrize(
    "content, error",
    [
        ("foo=1\ntest.hour=1\ntest.hour=2\n", "option 'test.hour' cannot be specified more than once"),
        ("test.duration=65536\n", "the argument ('65536') for option 'test.duration' is invalid"),
        ("test.hour=\n", "the argument for option 'test.hour' is invalid"),
        ("test.hour\n", "the options configuration file contains an invalid line 'test.hour'"),
        ("test.hour=%value%\n", "the argument ('%value%') for option 'test.hour' is invalid"),
    ],
)
def test_refused_files(rig, file, content, error):
    assert run([PROGRAM, "-c", file(content)]) == ("", error + "\n", 1)


def test_a_folder_reads_as_an_empty_file(list_settings, rig):
    assert list_settings("-c", str(rig.folder)) == listing()


@pytest.mark.parametrize("command", ["poweroff", "reboot"])
def test_the_two_commands(list_settings, file, command):
    path = file(f"test.shut.cmd={command}\n")
    assert list_settings("-c", path) == listing(test_shut_cmd=command)


@pytest.mark.parametrize("command", ["Poweroff", "halt", "poweroff -f", ""])
@pytest.mark.parametrize("with_result_file", [False, True])
def test_any_other_command_becomes_reboot_without_a_word(
    list_settings, file, command, with_result_file
):
    saved = file("result.start=0\n", "saved") if with_result_file else "/nowhere"
    path = file(f"test.shut.cmd={command}\nsys.save.path={saved}\n")
    assert list_settings("-c", path) == listing()


def test_any_other_command_on_the_command_line_becomes_reboot(list_settings):
    assert list_settings("--test.shut.cmd=halt") == listing()


def test_keys_that_only_files_have(list_settings, file):
    path = file("sys.save.path=/nowhere\nsys.board.path=/nowhere\n")
    assert list_settings("-c", path) == listing()


def test_the_last_test_s_times_are_listed_whole(list_settings, file):
    path = file("result.start=18446744073709551615\nresult.end=4294967296\n")
    assert list_settings("-c", path) == listing(
        startTimestamp="18446744073709551615", endTimestamp="4294967296"
    )
