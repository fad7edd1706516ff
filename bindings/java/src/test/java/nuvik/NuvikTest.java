package nuvik;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.nio.charset.StandardCharsets;
import java.time.LocalTime;
import java.util.AbstractMap.SimpleEntry;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Random;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** What ConformanceTest leaves out: configurations, rankings for now, other argument forms, errors and closing. */
class NuvikTest {
  private static Nuvik trained(String... predictors) {
    Nuvik nuvik = new Nuvik(predictors);
    String[] apps = {"mail", "maps", "chat", "mail", "news", "chat", "mail", "maps"};
    for (int i = 0; i < apps.length; ++i) nuvik.update(apps[i], 8, i);
    return nuvik;
  }

  @Test
  void configurationsReachTheFacade() {
    NuvikConfig defaults = NuvikConfig.builder().build();
    assertEquals(List.of("[stat_counter]", "[1]", 0.05, 60L, 0.5, false),
        List.of(Arrays.toString(defaults.predictors()), Arrays.toString(defaults.params()), defaults.killThreshold(),
            defaults.countLimit(), defaults.weightThreshold(), defaults.skipRepeats()));
    assertEquals("NuvikConfig[knn_regression, linear][5, 1]",
        NuvikConfig.builder().predictors("knn_regression", "linear").params(5).build().toString());
    NuvikConfig repeated = NuvikConfig.builder().predictors("linear").params(1, 2, 3).skipRepeats(true).build();
    assertArrayEquals(new String[] {"linear", "linear", "linear"}, repeated.predictors());
    try (Nuvik byConfig = new Nuvik(repeated);
        Nuvik byNames = new Nuvik("double_linear", "knn_regression", "linear", "x");
        Nuvik skipping = new Nuvik(NuvikConfig.builder().skipRepeats(true).build())) {
      assertEquals("NUVIK library 1.3 [ predictors list: linear, linear, linear ]", byConfig.toString());
      assertEquals("NUVIK library 1.3", byConfig.libraryInfo());
      assertEquals("NUVIK library 1.3 [ predictors list: double_linear, knn_regression, linear, stat_counter ]",
          byNames.toString());
      for (String app : new String[] {"a", "a", "b"}) skipping.update(app, 9, 0);
      assertTrue(new String(skipping.save(), StandardCharsets.UTF_8).contains("{\"app\":\"a\",\"popularity\":1}"));
    }
    assertThrows(IllegalArgumentException.class, () -> NuvikConfig.builder().countLimit(-1));
  }

  @Test
  void queriesConvertTheirResults() {
    try (Nuvik nuvik = trained()) {
      assertEquals(List.of(List.of(), List.of()), List.of(nuvik.soon(), nuvik.kill()));
      assertEquals(List.of(1.0 * 0.9 + 0.5 * 0.1, 0.25, 0.0),
          List.of(nuvik.soonWeight(0.5, 1.0), nuvik.soonWeight(0.25), nuvik.soonWeight()));
      assertThrows(UnsupportedOperationException.class, () -> nuvik.next().add("x"));
      nuvik.update("mail", Integer.MIN_VALUE, Integer.MAX_VALUE);  // any int reaches the library
    }
  }

  // Asked before every launch, a facade ranks for now what it ranks once the launch comes, and ends as its twin.
  @Test
  void nextAtAndWeightsAtAnswerWhatTheNextUpdateWillAndChangeNothing() {
    List<String> probes = new ArrayList<>(List.of("never launched"));
    for (int i = 0; i < 12; ++i) probes.add("app" + i);
    try (Nuvik asked = new Nuvik("markov_chain3_invalidate", "linear");
        Nuvik plain = new Nuvik("markov_chain3_invalidate", "linear")) {
      Random random = new Random(41);
      // The LocalTime forms call the others with the time's hour and minute.
      for (int i = 0; i < 120; ++i) {
        LocalTime time = LocalTime.of(i / 5 % 24, random.nextInt(60));
        String at = "launch " + i;
        List<String> next = asked.nextAt(time);
        double[] weights = asked.weightsAt(time, probes);
        assertEquals(next.subList(0, Math.min(i % 9, next.size())), asked.nextAt(time, i % 9), at);
        asked.nextAt(time.plusHours(7));
        asked.weightsAt(time.plusHours(7), probes);
        String app = "app" + random.nextInt(12);
        asked.update(app, time);
        plain.update(app, time.getHour(), time.getMinute());
        assertEquals(next, asked.next(), at);
        assertArrayEquals(weights, asked.weights(probes), at);
      }
      assertArrayEquals(plain.save(), asked.save());
      assertEquals(List.of(plain.countMetrics(), plain.sumMap(), plain.sumRecall()),
          List.of(asked.countMetrics(), asked.sumMap(), asked.sumRecall()));
      assertThrows(IllegalArgumentException.class, () -> asked.nextAt(LocalTime.NOON, -1));
    }
  }

  @Test
  void rejectedDocumentsThrowAndChangeNothing() throws Exception {
    try (Nuvik nuvik = trained("markov_chain3_invalidate", "linear")) {
      byte[] saved = nuvik.save();
      String document = new String(saved, StandardCharsets.UTF_8);
      // Rejected by the reader, by jsoncpp's nesting limit, by a bare value where a table belongs.
      String[] rejected = {"garbage", document.substring(0, document.length() / 2),
          document.replace("\"version\":3", "\"version\":4"), "[".repeat(1001) + "]".repeat(1001),
          "{\"count\":1,\"knownApps\":[\"a\"],\"models\":[{\"name\":\"stat_counter\",\"model\":[5]}],\"version\":3}"};
      for (String text : rejected) {
        NuvikFormatException e = assertThrows(NuvikFormatException.class,
            () -> nuvik.load(text.getBytes(StandardCharsets.UTF_8)), text);
        assertTrue(e.getMessage() != null && !e.getMessage().isEmpty());
        assertArrayEquals(saved, nuvik.save());
      }
      ByteArrayOutputStream out = new ByteArrayOutputStream();
      nuvik.save(out);
      nuvik.load(new ByteArrayInputStream(out.toByteArray()));
      assertArrayEquals(saved, nuvik.save());
    }
  }

  @Test
  void nullArgumentsThrowNullPointerException() {
    try (Nuvik nuvik = trained()) {
      byte[] saved = nuvik.save();
      Executable[] calls = {
          () -> nuvik.update(null, 1, 2), () -> nuvik.update("a", 1, 2, null), () -> nuvik.update("a", null),
          () -> nuvik.weight(null), () -> nuvik.weightDet(null), () -> nuvik.weights(null),
          () -> nuvik.weights(Arrays.asList("a", null)), () -> nuvik.soonWeight((double[]) null),
          () -> nuvik.nextAt(null), () -> nuvik.nextAt(null, 3), () -> nuvik.weightsAt(1, 2, null),
          () -> nuvik.weightsAt(LocalTime.NOON, Arrays.asList("a", null)), () -> nuvik.weightsAt(null, List.of()),
          () -> nuvik.setAppsPriority(null), () -> nuvik.setAppsPriority(List.of(new SimpleEntry<>(null, 1))),
          () -> nuvik.setAppsPriority(List.of(new SimpleEntry<>("a", null))),
          () -> nuvik.load((byte[]) null), () -> nuvik.load((java.io.InputStream) null),
          () -> nuvik.save(null), () -> new Nuvik((String) null), () -> new Nuvik((String[]) null),
          () -> new Nuvik((NuvikConfig) null), () -> NuvikConfig.builder().predictors("a", null)};
      for (Executable call : calls) assertThrows(NullPointerException.class, call);
      assertArrayEquals(saved, nuvik.save());
    }
  }

  @Test
  void closedInstanceThrowsAndClosesOnce() {
    long live = Nuvik.liveNativeFacades();
    Nuvik nuvik = trained();
    assertEquals(live + 1, Nuvik.liveNativeFacades());
    nuvik.close();
    nuvik.close();
    assertEquals(live, Nuvik.liveNativeFacades());
    assertEquals("Nuvik (closed)", nuvik.toString());
    Executable[] calls = {
        () -> nuvik.update("a", 1, 2), () -> nuvik.update("a", 1, 2, "t"), () -> nuvik.clear(), nuvik::next,
        () -> nuvik.nextAt(1, 2), () -> nuvik.nextAt(1, 2, 3), () -> nuvik.weightsAt(1, 2, List.of("a")),
        nuvik::soon, nuvik::kill, () -> nuvik.weight("a"), () -> nuvik.weightDet("a"),
        () -> nuvik.weights(List.of("a")), nuvik::allWeights, nuvik::soonWeight,
        () -> nuvik.setAppsPriority(List.of(Map.entry("a", 1))), nuvik::resetPriority, nuvik::countMetrics,
        nuvik::clearMetrics, nuvik::mapMetric, nuvik::recallMetric, nuvik::sumMap, nuvik::sumRecall,
        nuvik::countKnownApps, nuvik::save, () -> nuvik.load(new byte[] {'{'}), nuvik::libraryInfo};
    for (Executable call : calls) assertThrows(IllegalStateException.class, call);
  }
}
