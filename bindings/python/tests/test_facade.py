"""nuvik.Nuvik against the C++ facade, its documents and its argument checks."""
import datetime
import random
import subprocess

import pytest

import nuvik
from conftest import FACADE_TRACE

APPS = ["com.whatsapp", "com.spotify.music", "org.mozilla.firefox", "com.android.chrome", "com.waze", "com.strava",
        "com.amazon.kindle", "ch.threema.app", "écran", "日本語", "com.king.candycrushsaga", "com.google.android.gm"]


def stream(seed, length=600):
    generator = random.Random(seed)
    return [(generator.choice(APPS[:generator.randint(3, len(APPS))]), generator.randrange(24), generator.randrange(60))
            for _ in range(length)]


def python_trace(facade, launches):
    lines = []
    for app, hour, minute in launches:
        facade.update(app, hour, minute)
        lines.append("next:" + "".join(" " + name for name in facade.next()))
        lines.append("weights:" + "".join(f" {name}={weight:.17g}" for name, weight in facade.weights().items()))
    lines.append(f"metrics: {facade.count_metrics} {facade.sum_map:.17g} {facade.sum_recall:.17g} "
                 f"{facade.map_metric:.17g} {facade.recall_metric:.17g} {facade.count_known_apps}")
    return "\n".join(lines).encode() + b"\n" + facade.save() + b"\n"


@pytest.mark.parametrize("names, params", [
    (["markov_chain3_invalidate", "double_linear"], None),
    (["knn_regression", "linear"], [5, 1]),
    (["stat_counter", "markov_chain3_invalidate"], None),
])
def test_same_lists_weights_metrics_and_document_as_the_cpp_facade(names, params):
    launches = stream(len(names) + (params or [0])[0])
    command = [FACADE_TRACE, ",".join(names)] + ([",".join(map(str, params))] if params else [])
    text = "".join(f"{app} {hour} {minute}\n" for app, hour, minute in launches).encode()
    expected = subprocess.run(command, input=text, capture_output=True, check=True, timeout=60).stdout
    facade = nuvik.Nuvik(names, params=params)
    assert python_trace(facade, launches) == expected
    nuvik.Nuvik(names, params=params).load(facade.save())


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


def test_configuration_times_and_argument_types():
    assert repr(nuvik.Nuvik()) == "NUVIK library 1.3 [ predictors list: stat_counter ]"
    assert repr(nuvik.Nuvik("linear", params=[1, 1])).endswith("[ predictors list: linear, linear ]")
    assert repr(nuvik.Nuvik([])).endswith("[ predictors list: stat_counter ]")
    facade = nuvik.Nuvik(["stat_counter"], skip_repeats=True, kill_threshold=0.2, count_limit=5)
    assert facade.library_info() == "NUVIK library 1.3"

    by_numbers, by_datetime, by_time = nuvik.Nuvik(), nuvik.Nuvik(), nuvik.Nuvik()
    for app, hour, minute in stream(5, 50):
        by_numbers.update(app, hour, minute, tag="t")
        by_datetime.update(app, datetime.datetime(2024, 3, 4, hour, minute, 59))
        by_time.update(app, datetime.time(hour, minute))
    assert by_numbers.save() == by_datetime.save() == by_time.save()
    assert by_numbers.weights() == by_time.weights()
    assert list(by_numbers.weights()) == sorted(by_numbers.weights())  # the C++ map's order
    assert by_numbers.soon() == [] and by_numbers.kill() == []
    assert by_numbers.soon_weight([0.5, 1.0]) == 1.0 * 0.9 + 0.5 * 0.1
    assert by_numbers.weight_det("never seen") == -1.0

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
                 lambda: nuvik.Nuvik([1]), lambda: facade.soon_weight(["x"])):
        with pytest.raises(TypeError):
            call()
    with pytest.raises(UnicodeEncodeError):
        facade.update("\ud800", 1, 2)

    facade.clear_metrics()
    assert facade.count_metrics == 0 and facade.sum_map == 0.0
    facade.set_apps_priority([("b", 2), ["c", -1]])
    facade.update("b", 8, 0)
    facade.reset_priority()
    facade.clear()
    assert facade.count_known_apps == 2
