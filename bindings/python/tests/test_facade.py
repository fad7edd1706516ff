"""nuvik.Nuvik and nuvik.Suggestions against the C++ classes, their documents and their argument checks."""
import datetime
import random
import struct
import subprocess

import pandas as pd
import pytest

import nuvik
from conftest import BINDING_TRACE

APPS = ["com.whatsapp", "com.spotify.music", "org.mozilla.firefox", "com.android.chrome", "com.waze", "com.strava",
        "com.amazon.kindle", "ch.threema.app", "écran", "日本語", "com.king.candycrushsaga", "com.google.android.gm"]


def stream(seed, length=600):
    generator = random.Random(seed)
    return [(generator.choice(APPS[:generator.randint(3, len(APPS))]), generator.randrange(24), generator.randrange(60))
            for _ in range(length)]


# Every form a time may take, for the same hour and minute.
TIME_FORMS = [lambda hour, minute: (hour, minute), lambda hour, minute: [hour, minute],
              lambda hour, minute: datetime.time(hour, minute, 59),
              lambda hour, minute: datetime.datetime(2024, 3, 4, hour, minute, 30),
              lambda hour, minute: pd.Timestamp(year=2024, month=3, day=4, hour=hour, minute=minute, tz="Asia/Kolkata")]


def when(hour, minute, number):
    """The time in one of its forms, chosen by number; a time outside the day as a pair."""
    in_day = 0 <= hour < 24 and 0 <= minute < 60
    return TIME_FORMS[number % len(TIME_FORMS)](hour, minute) if in_day else (hour, minute)


def text(hex_bytes):
    return bytes.fromhex(hex_bytes).decode("utf-8", "surrogateescape")


def spaced(names):
    """Names as nuvik-binding-trace prints them: a space and the hexadecimal of each, so that an empty name shows."""
    return "".join(" " + name.encode("utf-8", "surrogateescape").hex() for name in names)


def names(spaced_hex):
    return [text(name) for name in spaced_hex[1:].split(" ")] if spaced_hex else []


def bits(value):
    return struct.pack(">d", value).hex()


def replayed(facade, suggestions, lines):
    """The lines of nuvik-binding-trace as Python gives them: each command repeated, each answer rebuilt."""
    actual = []
    for number, line in enumerate(lines):
        kind, *f = line.split(" ")
        answer = line
        if kind == "launch":
            facade.update(text(f[0]), when(int(f[1]), int(f[2]), number))
        elif kind == "priority":
            facade.set_apps_priority([(text(app), int(priority)) for app, priority in zip(f[::2], f[1::2])])
        elif kind in ("reset", "clear", "clearmetrics"):
            {"reset": facade.reset_priority, "clear": facade.clear, "clearmetrics": facade.clear_metrics}[kind]()
        elif kind in ("dismiss", "restore"):
            (suggestions.dismiss if kind == "dismiss" else suggestions.restore)(text(f[0]))
        elif kind == "cleardismissed":
            suggestions.clear_dismissed()
        elif kind == "dismissed":
            answer = "dismissed" + spaced(suggestions.dismissed())
        elif kind == "row":
            head, exclude, installed, fallback, _ = line.split("|")
            _, hour, minute, count, stable = head.split(" ")
            row = suggestions.row(facade, when(int(hour), int(minute), number), int(count), stable=stable == "1",
                                  exclude=tuple(names(exclude)), installed=set(names(installed)),
                                  fallback=iter(names(fallback)))
            answer = line[:line.rindex("|") + 1] + spaced(row)
        elif kind == "next":
            answer = "next" + spaced(facade.next())
        elif kind == "weights":
            answer = "weights" + "".join(f"{spaced([app])} {bits(weight)}" for app, weight in facade.weights().items())
        elif kind == "probe":
            app = text(f[0])
            answer = " ".join(["probe", f[0], bits(facade.weight(app)), bits(facade.weight_det(app))])
        elif kind == "metrics":
            answer = " ".join(["metrics", str(facade.count_metrics), bits(facade.sum_map), bits(facade.sum_recall),
                               bits(facade.map_metric), bits(facade.recall_metric), str(facade.count_known_apps)])
        elif kind in ("document", "suggestions"):
            answer = kind + " " + (facade if kind == "document" else suggestions).save().hex()
        else:
            answer = "an unknown record"
        actual.append(answer)
    return actual


@pytest.mark.parametrize("arguments", [["markov_chain3_invalidate,double_linear"], ["knn_regression,linear", "5,1"]])
def test_same_lists_weights_metrics_rows_and_documents_as_cpp(arguments):
    output = subprocess.run([BINDING_TRACE, *arguments], capture_output=True, check=True, timeout=60).stdout
    lines = output.decode().splitlines()
    assert lines[0] == " ".join(["predictors", *arguments])
    params = [int(param) for param in arguments[1].split(",")] if len(arguments) > 1 else None
    assert replayed(nuvik.Nuvik(arguments[0].split(","), params=params), nuvik.Suggestions(), lines[1:]) == lines[1:]
    kinds = [line.split(" ")[0] for line in lines]
    assert (kinds.count("launch"), kinds.count("row")) == (400, 400)
    # C++ documents load in Python. A double_linear stage that has counted nothing saves empty tables and loads
    # as a new stage, so only the suggestions' document is sure to save again to the same bytes.
    facade, suggestions = nuvik.Nuvik(), nuvik.Suggestions()
    facade.load(bytes.fromhex(lines[-2].split(" ")[1]))
    suggestions.load(bytes.fromhex(lines[-1].split(" ")[1]))
    assert "suggestions " + suggestions.save().hex() == lines[-1]


def test_next_at_is_the_next_list_after_an_update_at_that_time_and_changes_nothing():
    """Asked before every launch, in every form of time, a facade ends as its twin that was never asked."""
    names = ["markov_chain3_invalidate", "linear"]
    asked, plain = nuvik.Nuvik(names), nuvik.Nuvik(names)
    apps = APPS + ["never launched"]
    for number, (app, hour, minute) in enumerate(stream(11, 150)):
        when = TIME_FORMS[number % len(TIME_FORMS)](hour, minute)
        asked.next_at(((hour + 7) % 24, minute))
        asked.weights_at(((hour + 7) % 24, minute), apps)
        ranking, weights = asked.next_at(when), asked.weights_at(when, apps)
        assert asked.next_at(when, number % 7) == ranking[:number % 7]
        asked.update(app, when)
        plain.update(app, hour, minute, tag="t")
        assert asked.next() == ranking
        assert [bits(asked.weight(name)) for name in apps] == list(map(bits, weights))
    assert (asked.save(), asked.count_metrics) == (plain.save(), plain.count_metrics)
    assert list(map(bits, [asked.sum_map, asked.sum_recall])) == list(map(bits, [plain.sum_map, plain.sum_recall]))
    assert asked.next_at((8, 15), 10**30) == asked.next_at((8, 15)) and asked.next_at((8, 15), 0) == []


def test_suggestions_documents_and_names_that_are_not_utf8():
    facade = nuvik.Nuvik()
    for app in "abcde":
        facade.update(app, 9, 0)
    suggestions = nuvik.Suggestions()
    assert nuvik.Suggestions.STABLE_MARGIN == 3
    # Bytes that are not UTF-8 cross as the document writes them, with "surrogateescape".
    document = b'{"dismissed":["a\\udc80"],"row":["b\\udcff"],"version":1}'
    suggestions.load(document)
    assert suggestions.save() == document and suggestions.dismissed() == ["a\udc80"]
    row = suggestions.row(facade, (9, 0), 6, exclude=["a", "b"], fallback=["a\udc80", "b\udcff"])
    assert row == ["e", "d", "c", "b\udcff"]
    document = suggestions.save()
    for bad in [b"garbage", b"", document[: len(document) // 2], b"[" * 1001 + b"]" * 1001,
                document.replace(b'"version":1', b'"version":2'), document.replace(b'"row":[', b'"row":7,"x":[')]:
        with pytest.raises(nuvik.FormatError):
            suggestions.load(bad)
        assert suggestions.save() == document
    suggestions.restore("a\udc80")
    assert suggestions.dismissed() == []


def test_rejected_documents_leave_the_facade_unchanged():
    facade = nuvik.Nuvik(["markov_chain3_invalidate", "double_linear"])
    for app, hour, minute in stream(3, 200):
        facade.update(app, hour, minute)
    document, ranking, weights = facade.save(), facade.next(), facade.weights()
    nested = b"[" * 1001 + b"]" * 1001
    bare_table = document.replace(b'"model":{', b'"model":7,"x":{', 1)
    for bad in [b"garbage", b"", document[: len(document) // 2], nested, bare_table, b"{}"]:
        with pytest.raises(nuvik.FormatError):
            facade.load(bad)
        assert (facade.save(), facade.next(), facade.weights()) == (document, ranking, weights)
    assert issubclass(nuvik.FormatError, ValueError)
    with pytest.raises(nuvik.FormatError):
        nuvik.Nuvik().load(nuvik.Nuvik().save())  # a facade that saw nothing writes what it cannot read


def test_configuration_and_argument_types():
    assert repr(nuvik.Nuvik()) == "NUVIK library 1.3 [ predictors list: stat_counter ]"
    assert repr(nuvik.Nuvik("linear", params=[1, 1])).endswith("[ predictors list: linear, linear ]")
    assert repr(nuvik.Nuvik([])).endswith("[ predictors list: stat_counter ]")
    facade = nuvik.Nuvik(["stat_counter"], skip_repeats=True, kill_threshold=0.2, count_limit=5)
    suggestions = nuvik.Suggestions()
    assert facade.library_info() == "NUVIK library 1.3"

    assert facade.soon() == [] and facade.kill() == []
    assert facade.soon_weight([0.5, 1.0]) == 1.0 * 0.9 + 0.5 * 0.1

    facade.update("a", 2**31 - 1, -2**31)  # any C int: the facade defines what it means
    for hour in (2**31, -2**31 - 1, 10**30):
        with pytest.raises(OverflowError):
            facade.update("a", hour, 0)
    with pytest.raises(OverflowError):
        nuvik.Nuvik(["knn_regression"], params=[2**40])
    for call in (lambda: facade.update("a", 1.5, 0), lambda: facade.update("a", "7", 0),
                 lambda: facade.update(b"a", 7, 0), lambda: facade.update(3, 7, 0),
                 lambda: facade.update("a", datetime.date(2024, 3, 4)), lambda: facade.update("a", 7),
                 lambda: facade.load("{}"), lambda: facade.set_apps_priority([("a", "high")]),
                 lambda: facade.set_apps_priority(["a"]), lambda: facade.weight(None),
                 lambda: nuvik.Nuvik([1]), lambda: facade.soon_weight(["x"]),
                 lambda: facade.next_at((8, 15, 0)), lambda: facade.next_at("08:15"), lambda: facade.next_at(8),
                 lambda: facade.next_at(datetime.date(2024, 3, 4)), lambda: facade.next_at((8.0, 15)),
                 lambda: facade.next_at((8, 15), 1.0), lambda: facade.weights_at((8, 15), "a"),
                 lambda: facade.weights_at((8, 15), [b"a"]), lambda: suggestions.row(None, (8, 15)),
                 lambda: suggestions.row(facade, (8, 15), exclude="a"), lambda: suggestions.dismiss(1),
                 lambda: suggestions.load("{}")):
        with pytest.raises(TypeError):
            call()
    for call in (lambda: facade.next_at((8, 15), -1), lambda: facade.next_at(pd.NaT),
                 lambda: suggestions.row(facade, (8, 15), -2), lambda: facade.update("a", pd.NaT)):
        with pytest.raises(ValueError):
            call()
    with pytest.raises(OverflowError):
        facade.weights_at((2**31, 0), ["a"])
    with pytest.raises(UnicodeEncodeError):
        facade.update("\ud800", 1, 2)
    facade.set_apps_priority([("b", 2), ["c", -1]])  # a pair as a tuple or a list
