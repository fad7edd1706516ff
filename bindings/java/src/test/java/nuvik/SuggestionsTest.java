package nuvik;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.nio.charset.StandardCharsets;
import java.time.LocalTime;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** What ConformanceTest leaves out: rows of a ranking, names that are not UTF-8, errors and closing. */
class SuggestionsTest {
  @Test
  void everyPartOfARequestReachesTheRow() {
    try (Suggestions suggestions = new Suggestions(); Nuvik model = new Nuvik()) {
      suggestions.dismiss("c");
      // Not b (excluded), c (dismissed), d (not installed), nor the fallback's second a.
      assertEquals(List.of("a", "e", "f", "x"), suggestions.row(List.of("a", "", "b", "c", "d", "e", "f", "g"),
          RowRequest.builder().count(4).exclude("b").installed("a", "c", "e", "f", "x").fallback("x", "a").build()));
      // Stable, the previous row's applications keep their slots.
      assertEquals(List.of("a", "e", "f"), suggestions.row(List.of("f", "e", "a"),
          RowRequest.builder().count(4).stable(true).build()));
      // A newcomer takes a kept application's slot when it ranks STABLE_MARGIN places above it, not one fewer.
      RowRequest single = RowRequest.builder().count(1).stable(true).build();
      suggestions.row(List.of("old"), single);
      List<String> ranking = new ArrayList<>(List.of("new"));
      for (int i = 2; i < Suggestions.STABLE_MARGIN; ++i) ranking.add("app" + i);
      ranking.add("old");
      assertEquals(List.of("old"), suggestions.row(ranking, single));
      ranking.add(1, "app1");
      assertEquals(List.of("new"), suggestions.row(ranking, single));

      for (int i = 0; i < 40; ++i) model.update("app" + i % 9, i % 24, i % 60);
      RowRequest request = RowRequest.builder().count(4).exclude("app2").build();
      assertEquals(suggestions.row(model.nextAt(21, 5), request), suggestions.row(model, LocalTime.of(21, 5), request));
    }
  }

  @Test
  void namesThatAreNotUtf8AndDocuments() throws Exception {
    try (Suggestions suggestions = new Suggestions()) {
      // A lone surrogate goes in as U+FFFD.
      suggestions.dismiss("\uD800lone");
      assertEquals(List.of("\uFFFDlone"), suggestions.dismissed());
      // Bytes that are not UTF-8 (overlong, surrogate, truncated, 0xFF) come out as one U+FFFD each.
      byte[] document = ("{\"dismissed\":[\"x\\udcc0\\udcaf\\udced\\udca0\\udc80\\udcf0\\udc9f\\udc98\\udcff\"],"
          + "\"row\":[\"y\"],\"version\":1}").getBytes(StandardCharsets.UTF_8);
      suggestions.load(document);
      assertEquals(List.of("x" + "\uFFFD".repeat(9)), suggestions.dismissed());
      assertArrayEquals(document, suggestions.save());
      byte[][] rejected = {"garbage".getBytes(StandardCharsets.UTF_8), Arrays.copyOf(document, 20), {}};
      for (byte[] text : rejected) {
        assertThrows(NuvikFormatException.class, () -> suggestions.load(text));
        assertArrayEquals(document, suggestions.save());
      }
    }
  }

  @Test
  void requestsAndArgumentsAreChecked() {
    RowRequest defaults = RowRequest.builder().build();
    assertEquals(List.of(5, List.of(), List.of(), List.of(), false), List.of(defaults.count(), defaults.exclude(),
        defaults.installed(), defaults.fallback(), defaults.stable()));
    List<String> screen = new ArrayList<>(List.of("mail"));
    RowRequest.Builder builder = RowRequest.builder().exclude(screen);
    screen.add("maps");
    RowRequest request = builder.build();
    assertEquals(List.of("mail"), request.exclude());
    assertThrows(UnsupportedOperationException.class, () -> request.exclude().add("x"));
    assertThrows(IllegalArgumentException.class, () -> RowRequest.builder().count(-1));

    Nuvik closedModel = new Nuvik();
    closedModel.close();
    try (Suggestions suggestions = new Suggestions(); Nuvik model = new Nuvik()) {
      Executable[] calls = {
          () -> RowRequest.builder().exclude((List<String>) null), () -> RowRequest.builder().installed("a", null),
          () -> RowRequest.builder().fallback((String[]) null), () -> suggestions.row(null, 1, 2, request),
          () -> suggestions.row(model, 1, 2, null), () -> suggestions.row(model, null, request),
          () -> suggestions.row(null, request), () -> suggestions.row(Arrays.asList("a", null), request),
          () -> suggestions.row(List.of(), null), () -> suggestions.dismiss(null), () -> suggestions.restore(null),
          () -> suggestions.load(null)};
      for (Executable call : calls) assertThrows(NullPointerException.class, call);
      assertThrows(IllegalStateException.class, () -> suggestions.row(closedModel, 1, 2, request));
    }

    long live = Suggestions.liveNativeObjects();
    Suggestions suggestions = new Suggestions();
    assertEquals(live + 1, Suggestions.liveNativeObjects());
    suggestions.close();
    suggestions.close();
    assertEquals(live, Suggestions.liveNativeObjects());
    try (Nuvik model = new Nuvik()) {
      Executable[] calls = {
          () -> suggestions.row(model, 1, 2, request), () -> suggestions.row(List.of("a"), request),
          () -> suggestions.dismiss("a"), () -> suggestions.restore("a"), suggestions::dismissed,
          suggestions::clearDismissed, suggestions::save, () -> suggestions.load(new byte[] {'{'})};
      for (Executable call : calls) assertThrows(IllegalStateException.class, call);
    }
  }
}
