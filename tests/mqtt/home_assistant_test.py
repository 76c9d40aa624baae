"""What Home Assistant is told: keys that its pages on MQTT document, as they are written down here,
and templates whose results it can use, rendered by the engine that it renders them with. Home
Assistant itself is not run.
"""

import json
import re
from datetime import datetime, timezone

import jinja2
import pytest

from home import ALIVE, CONNECTED, STATE

# For every entity, as documented.
COMMON = {
    *("availability", "availability_mode", "availability_template", "availability_topic"),
    *("default_entity_id", "device", "enabled_by_default", "encoding", "entity_category"),
    *("entity_picture", "icon", "json_attributes_template", "json_attributes_topic", "name"),
    *("origin", "payload_available", "payload_not_available", "platform", "qos", "unique_id"),
}
# The keys of each kind of entity, those that it requires, its device classes.
KINDS = {
    "binary_sensor": (
        {
            *("device_class", "expire_after", "force_update", "off_delay", "payload_off"),
            *("payload_on", "state_topic", "value_template"),
        },
        {"state_topic"},
        {
            *("battery", "battery_charging", "carbon_monoxide", "cold", "connectivity", "door"),
            *("garage_door", "gas", "heat", "light", "lock", "moisture", "motion", "moving"),
            *("occupancy", "opening", "plug", "power", "presence", "problem", "running", "safety"),
            *("smoke", "sound", "tamper", "update", "vibration", "window"),
        },
    ),
    "sensor": (
        {
            *("device_class", "expire_after", "force_update", "last_reset_value_template"),
            *("options", "state_class", "state_topic", "suggested_display_precision"),
            *("unit_of_measurement", "value_template"),
        },
        {"state_topic"},
        # Of some fifty those that are for times.
        {"date", "duration", "timestamp"},
    ),
    "button": (
        {"command_template", "command_topic", "device_class", "payload_press", "retain"},
        {"command_topic"},
        {"identify", "restart", "update"},
    ),
}
DEVICE = {
    *("configuration_url", "connections", "hw_version", "identifiers", "manufacturer", "model"),
    *("model_id", "name", "serial_number", "suggested_area", "sw_version", "via_device"),
}
ORIGIN = {"name", "support_url", "sw_version"}
DURATIONS = {"d", "h", "min", "s", "ms", "µs"}
TOPIC = re.compile(r"homeassistant/(\w+)/[a-zA-Z0-9_-]+/[a-zA-Z0-9_-]+/config")

TESTED = (
    "battery-empty=0\ntimes.start=0\ntimes.end=0\ntesting=0\ntest.start=1717416000\n"
    "test.end=1717416600\ntest.good=0\nevents=0\ndone=\n"
)


@pytest.fixture(params=[None, TESTED], ids=["never tested", "tested"])
def told(request, heart, home, broker):
    """Each entity's kind and configuration, and the state."""
    if request.param:
        home.state.write_text(request.param)
    words = ["--discovery=homeassistant", "--button=/nowhere"]
    with home.mqtt(broker.port, *words) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        messages = broker.retained("homeassistant/#", 9)
        ((_, state),) = broker.retained(STATE)
    entities = [(TOPIC.fullmatch(topic)[1], json.loads(text)) for topic, text in messages]
    return entities, json.loads(state)


def test_keys_and_device_classes_are_documented(told):
    for kind, entity in told[0]:
        keys, required, device_classes = KINDS[kind]
        assert required <= set(entity) <= keys | COMMON
        # A device takes one of the two, entities of one device are told apart by the other.
        assert entity["device"]["identifiers"] and entity["unique_id"]
        assert set(entity["device"]) <= DEVICE
        assert {"name"} <= set(entity["origin"]) <= ORIGIN
        assert ("device_class" in entity) == (kind != "button")
        assert entity.get("device_class") in device_classes | {None}
        assert entity.get("entity_category") in (None, "config", "diagnostic")
        if entity.get("device_class") == "duration":
            assert entity["unit_of_measurement"] in DURATIONS


def test_entities_are_told_apart(told):
    assert len({entity["unique_id"] for _, entity in told[0]}) == 9
    assert len({entity["name"] for _, entity in told[0]}) == 9
    assert len({json.dumps(entity["device"]) for _, entity in told[0]}) == 1


def shown(kind, entity, state):
    """What Home Assistant makes of the state. None: unknown."""
    text = jinja2.Template(entity["value_template"]).render(value_json=state)
    if text == "None":
        return None
    if kind == "binary_sensor":
        return {entity["payload_on"]: True, entity["payload_off"]: False}[text]
    if entity["device_class"] == "timestamp":
        return datetime.strptime(text, "%Y-%m-%dT%H:%M:%S%z")
    return int(text)


def test_every_value_is_understood(told):
    entities, state = told
    values = {
        entity["unique_id"].removeprefix("kelvo-pwr_attic_"): shown(kind, entity, state)
        for kind, entity in entities
        if kind != "button"
    }
    tested = state["last_test_end"] is not None

    def known(value):
        return value if tested else None

    assert values == {
        "daemon_alive": True,
        "power_missing": False,
        "battery_empty": False,
        "battery_bad": known(True),
        "testing": False,
        "last_test_start": known(datetime(2024, 6, 3, 12, 0, tzinfo=timezone.utc)),
        "last_test_end": known(datetime(2024, 6, 3, 12, 10, tzinfo=timezone.utc)),
        "last_test_seconds": known(600),
    }
