"""nuvik.Nuvik and nuvik.Suggestions against the C++ classes, their documents and their argument checks."""
import datetime
import random
import struct
import subprocess

import pandas as pd
import pytest

import nuvik
from conftest import FACADE_TRACE

APPS = ["com.whatsapp", "com.spotify.music", "org.mozilla.firefox", "com.android.chrome", "com.waze", "com.strava",
        "com.amazon.kindle", "ch.threema.app", "écran", "日本語", "com.king.candycrushsaga", "com.google.android.gm"]


def stream(seed, length=600):
    generator = random.Random(seed)
    return [(generator.choice(APPS[:generator.randint(3, len(APPS))]), generator.randrange(24), generator.randrange(60))
            for _ in range(length)]


def with_suggestions(launches, seed):
    """The launches with FacadeTrace's Suggestions commands between them."""
    generator = random.Random(seed)
    commands, dismissed = [], []
    for app, hour, minute in launches:
        draw = generator.random()
        if draw < 0.5:
            when = (hour, minute) if generator.random() < 0.7 else (generator.randrange(24), generator.randrange(60))
            installed = generator.sample(APPS, generator.randrange(4, len(APPS))) if generator.random() < 0.3 else []
            commands.append(("!row", *when, generator.randrange(7), generator.random() < 0.6,
                             generator.sample(APPS, generator.randrange(3)), installed,
                             generator.sample(APPS + ["com.android.settings"], generator.randrange(4))))
        elif draw < 0.55:
            dismissed.append(generator.choice(APPS))
            commands.append(("!dismiss", dismissed[-1]))
        elif draw < 0.6:
            # Mostly an application dismissed before, at times one that is not.
            commands.append(("!restore", generator.choice(dismissed + APPS[:2])))
        commands.append((app, hour, minute))
    return commands


def trace_text(commands):
    """The commands as FacadeTrace reads them: lists comma separated, "-" for none, booleans 0 or 1."""
    def word(value):
        if isinstance(value, list):
            return ",".join(value) or "-"
        return str(int(value)) if isinstance(value, bool) else str(value)
    return "".join(" ".join(map(word, command)) + "\n" for command in commands).encode()


def listing(label, apps):
    return label + ":" + "".join(" " + app for app in apps)


# Every form a time may take, for the same hour and minute.
TIME_FORMS = [lambda hour, minute: (hour, minute), lambda hour, minute: [hour, minute],
              lambda hour, minute: datetime.time(hour, minute, 59),
              lambda hour, minute: datetime.datetime(2024, 3, 4, hour, minute, 30),
              lambda hour, minute: pd.Timestamp(year=2024, month=3, day=4, hour=hour, minute=minute, tz="Asia/Kolkata")]


def python_trace(facade, commands):
    suggestions = nuvik.Suggestions()
    lines = []
    for number, command in enumerate(commands):
        if command[0] == "!row":
            _, hour, minute, count, stable, exclude, installed, fallback = command
            lines.append(listing("row", suggestions.row(facade, TIME_FORMS[number % len(TIME_FORMS)](hour, minute),
                                                        count, exclude=tuple(exclude), installed=set(installed),
                                                        fallback=iter(fallback), stable=stable)))
        elif command[0] in ("!dismiss", "!restore"):
            (suggestions.dismiss if command[0] == "!dismiss" else suggestions.restore)(command[1])
            lines.append(listing("dismissed", suggestions.dismissed()))
        else:
            facade.update(*command)
            lines.append(listing("next", facade.next()))
            lines.append("weights:" + "".join(f" {name}={weight:.17g}" for name, weight in facade.weights().items()))
    lines.append(f"metrics: {facade.count_metrics} {facade.sum_map:.17g} {facade.sum_recall:.17g} "
                 f"{facade.map_metric:.17g} {facade.recall_metric:.17g} {facade.count_known_apps}")
    return "\n".join(lines).encode() + b"\n" + facade.save() + b"\n" + suggestions.save() + b"\n"


def bits(values):
    """The doubles' bytes, so that NaNs compare equal."""
    values = list(values)
    return struct.pack(f"{len(values)}d", *values)


@pytest.mark.parametrize("names, params", [(["markov_chain3_invalidate", "double_linear"], None),
                                           (["knn_regression", "linear"], [5, 1])])
def test_same_lists_weights_metrics_rows_and_documents_as_cpp(names, params):
    seed = len(names) + (params or [0])[0]
    commands = with_suggestions(stream(seed), seed)
    command = [FACADE_TRACE, ",".join(names)] + ([",".join(map(str, params))] if params else [])
    expected = subprocess.run(command, input=trace_text(commands), capture_output=True, check=True,
                              timeout=60).stdout
    facade = nuvik.Nuvik(names, params=params)
    assert python_trace(facade, commands) == expected
    nuvik.Nuvik(names, params=params).load(facade.save())


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
        assert bits(asked.weight(name) for name in apps) == bits(weights)
    assert (asked.save(), asked.count_metrics) == (plain.save(), plain.count_metrics)
    assert bits([asked.sum_map, asked.sum_recall]) == bits([plain.sum_map, plain.sum_recall])
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
    suggestions.dismiss("x")
    suggestions.clear_dismissed()
    assert suggestions.dismissed() == [] and suggestions.row(facade, (9, 0), 0) == []


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
    assert facade.weight_det("never seen") == -1.0

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

    facade.clear_metrics()
    assert facade.count_metrics == 0 and facade.sum_map == 0.0
    facade.set_apps_priority([("b", 2), ["c", -1]])
    facade.update("b", 8, 0)
    facade.reset_priority()
    facade.clear()
    assert facade.count_known_apps == 2
