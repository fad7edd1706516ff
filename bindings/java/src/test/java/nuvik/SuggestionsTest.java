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

class SuggestionsTest {
  @Test
  void rowsFollowTheRules() {
    try (Suggestions suggestions = new Suggestions(); Nuvik model = new Nuvik()) {
      List<String> ranking = List.of("a", "", "b", "c", "d", "e", "f", "g");
      suggestions.dismiss("c");
      // Empty, excluded and dismissed names are skipped; the fallback comes after the ranking, each name once.
      assertEquals(List.of("a", "d", "e"),
          suggestions.row(ranking, RowRequest.builder().count(3).exclude("b").fallback("x", "a").build()));
      assertEquals(List.of("a", "e", "x"), suggestions.row(ranking,
          RowRequest.builder().count(4).installed("x", "e", "a", "c").fallback("x", "a", "x").build()));
      assertEquals(List.of("a", "b", "d", "e", "f"), suggestions.row(ranking, RowRequest.builder().build()));
      assertEquals(List.of(), suggestions.row(ranking, RowRequest.builder().count(0).build()));

      suggestions.clearDismissed();
      assertEquals(List.of("a", "b", "c"), suggestions.row(ranking, RowRequest.builder().count(3).build()));
      RowRequest stable = RowRequest.builder().count(3).stable(true).build();
      // d ranks STABLE_MARGIN places above c, the lowest kept application, and takes its slot; e ranks only two
      // places above b, which ends the newcomers.
      assertEquals(List.of("a", "b", "d"), suggestions.row(List.of("d", "e", "a", "b", "c"), stable));
      // b is no longer a candidate: its slot goes to the first newcomer.
      assertEquals(List.of("a", "x", "d"), suggestions.row(List.of("d", "e", "a", "b", "c"),
          RowRequest.builder().count(3).stable(true).installed("a", "d", "x").fallback("x").build()));
      // Too few candidates: the free slots close up.
      assertEquals(List.of("d"), suggestions.row(List.of("d"), stable));

      // A facade's row ranks by nextAt.
      for (int i = 0; i < 40; ++i) model.update("app" + i % 9, i % 24, i % 60);
      RowRequest request = RowRequest.builder().count(4).exclude("app2").build();
      assertEquals(suggestions.row(model.nextAt(21, 5), request), suggestions.row(model, LocalTime.of(21, 5), request));
    }
  }

  @Test
  void dismissedApplicationsAndTheirDocument() throws Exception {
    String outsideBmp = "\uD83D\uDE00 chat";
    try (Suggestions suggestions = new Suggestions(); Suggestions loaded = new Suggestions()) {
      suggestions.dismiss("mail");
      suggestions.dismiss(outsideBmp);
      suggestions.dismiss("mail");
      assertEquals(List.of("mail", outsideBmp), suggestions.dismissed());
      suggestions.restore("never dismissed");
      suggestions.restore(outsideBmp);
      suggestions.dismiss("nul\0byte");
      assertEquals(List.of("nul\0byte", "mail"), suggestions.dismissed());
      assertEquals(List.of("maps", "news", outsideBmp), suggestions.row(
          List.of("maps", "mail", "nul\0byte", "news", outsideBmp), RowRequest.builder().count(3).build()));

      // The document holds the dismissed applications and the previous row, which a stable row keeps.
      byte[] saved = suggestions.save();
      loaded.load(saved);
      assertArrayEquals(saved, loaded.save());
      assertEquals(suggestions.dismissed(), loaded.dismissed());
      RowRequest stable = RowRequest.builder().count(3).stable(true).build();
      List<String> ranking = List.of("news", "x", "y", "z", outsideBmp, "maps");
      assertEquals(List.of("x", "news", outsideBmp), suggestions.row(ranking, stable));
      assertEquals(List.of("x", "news", outsideBmp), loaded.row(ranking, stable));

      byte[] current = loaded.save();
      byte[][] rejected = {"garbage".getBytes(StandardCharsets.UTF_8), Arrays.copyOf(saved, saved.length / 2), {}};
      for (byte[] document : rejected) {
        assertThrows(NuvikFormatException.class, () -> loaded.load(document));
        assertArrayEquals(current, loaded.save());
      }
      suggestions.clearDismissed();
      assertEquals(List.of(), suggestions.dismissed());
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
