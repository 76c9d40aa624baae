"""A battery test from request to result."""

from story import await_full_server, client, follow

with follow() as journal:
    await_full_server(journal)
    client("--run-test-now", "--test.duration=20")
    journal.wait_for_line("Test result: Battery is good", within=30)
    print(client("--status"), end="")
