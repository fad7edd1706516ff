"""nuvik.replay against nuvik-replay: same results, same time rules, same messages for bad rows, the report."""
import xml.etree.ElementTree as ElementTree

import pandas as pd
import pytest

import nuvik
from conftest import ENSEMBLES, ROW, SAMPLE_LOG, frame_rows, replay_json, tool_error

XHTML = "{http://www.w3.org/1999/xhtml}"


def test_sample_log_equals_nuvik_replay_json(sample_json):
    report, per_user_rows = sample_json
    frame = pd.read_csv(SAMPLE_LOG)
    per_user = nuvik.replay(frame, ENSEMBLES, per_user=True, **ROW)
    assert frame_rows(per_user, row=True) == per_user_rows
    overall = nuvik.replay(frame, ENSEMBLES, lagging=True)
    assert list(overall.columns) == ["ensemble", "users", "launches", "scored", "apps", "sum_map", "sum_recall",
                                     "sum_hit1", "sum_hit3", "sum_hit5", "sum_mrr5", "sum_ndcg5", "map", "recall_at_5",
                                     "hit_at_1", "hit_at_3", "hit_at_5", "mrr_at_5", "ndcg_at_5", "us_per_launch"]
    assert [name for name in per_user.columns if name not in overall.columns] == [
        "user", "sum_row_hit", "sum_dock_or_row_hit", "sum_churn", "churn_count", "row_hit", "dock_or_row_hit", "churn"]
    assert frame_rows(overall) == replay_json(SAMPLE_LOG, "--compare", *ENSEMBLES, "--lagging")[1]
    assert (overall["us_per_launch"] > 0).all()


def test_time_columns_of_every_kind_give_the_same_replay():
    frame = pd.read_csv(SAMPLE_LOG).head(800)
    expected = frame_rows(nuvik.replay(frame, "stat_counter", skip_repeats=True))
    as_datetimes = frame.assign(timestamp=pd.to_datetime(frame["timestamp"]))
    assert frame_rows(nuvik.replay(as_datetimes, "stat_counter", skip_repeats=True)) == expected
    zoned = as_datetimes.assign(timestamp=as_datetimes["timestamp"].dt.tz_localize("Europe/Paris"))
    assert frame_rows(nuvik.replay(zoned, "stat_counter", skip_repeats=True)) == expected
    epoch = (as_datetimes["timestamp"] - pd.Timestamp("1970-01-01 02:00")) // pd.Timedelta(seconds=1)
    as_epoch = frame.assign(timestamp=epoch)
    assert frame_rows(nuvik.replay(as_epoch, "stat_counter", skip_repeats=True, utc_offset="+02:00")) == expected
    one_user = nuvik.replay(frame[frame["user"] == "user1"].drop(columns="user"), ["linear"], per_user=True)
    assert list(one_user["user"]) == [""] * 3 and (one_user["users"] == 1).all()


def test_bad_rows_raise_the_tools_message(tmp_path):
    good = pd.read_csv(SAMPLE_LOG).head(30)
    bad_time = good.copy()
    bad_time.loc[5, "timestamp"] = "2024-13-04 07:00"
    out_of_order = good.copy()
    out_of_order.loc[7, "timestamp"] = "2024-03-01 07:00:00"
    no_app = good.copy()
    no_app.loc[9, "app"] = None
    for bad in (bad_time, out_of_order, no_app):
        path = tmp_path / "log.csv"
        bad.to_csv(path, index=False)
        with pytest.raises(ValueError) as error:
            nuvik.replay(bad, ["stat_counter"])
        assert str(error.value) == tool_error(str(path)).replace(str(path), "DataFrame", 1)
        skipped = nuvik.replay(bad, ["stat_counter"], skip_bad_rows=True)
        assert skipped["launches"][0] == len(good) - 1
    for frame, ensemble, options, message in [
            (good, "lineaire", {}, "unknown predictor 'lineaire'"),
            (good.rename(columns={"timestamp": "time"}), "linear", {}, "'timestamp'"),
            (good, "linear", {"utc_offset": "Paris"}, "utc_offset"),
            (good, "linear", {"dock": 4}, "dock and stable need a row"),
            (good, "linear", {"row": 0}, "row must be at least 1")]:
        with pytest.raises(ValueError, match=message):
            nuvik.replay(frame, [ensemble], **options)


def test_report_shows_the_frames_numbers_and_its_path_is_checked_first(tmp_path):
    frame = pd.read_csv(SAMPLE_LOG).head(1500)
    page = tmp_path / "report.html"
    result = nuvik.replay(frame, ENSEMBLES, lagging=True, report=page)
    root = ElementTree.parse(page).getroot()  # well-formed
    table = next(t for t in root.iter(XHTML + "table") if t.get("id") == "summary-table")
    shown = [[cell.findtext(XHTML + "span") for cell in row.findall(XHTML + "td")[3:8]]
             for row in table.findall(XHTML + "tr")[1:]]
    means = result[["map", "recall_at_5", "hit_at_1", "hit_at_3", "mrr_at_5"]].itertuples(index=False)
    assert shown == [[f"{mean:.4f}" for mean in run] for run in means]
    assert f"<code>nuvik.replay(frame, {ENSEMBLES!r}, lagging=True)</code>" in page.read_text()
    with pytest.raises(OSError, match="it is a directory"):
        nuvik.replay(frame.assign(timestamp="bad"), ENSEMBLES, report=tmp_path)  # before the bad rows are read
