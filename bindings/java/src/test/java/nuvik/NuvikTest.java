package nuvik;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.nio.charset.StandardCharsets;
import java.time.LocalTime;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.Random;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

class NuvikTest {
  private static Nuvik trained(String... predictors) {
    Nuvik nuvik = new Nuvik(predictors);
    String[] apps = {"mail", "maps", "chat", "mail", "news", "chat", "mail", "maps"};
    for (int i = 0; i < apps.length; ++i) nuvik.update(apps[i], 8, i);
    return nuvik;
  }

  @Test
  void configurationIsNormalisedAsInCpp() {
    NuvikConfig defaults = NuvikConfig.builder().build();
    assertArrayEquals(new String[] {"stat_counter"}, defaults.predictors());
    assertArrayEquals(new int[] {1}, defaults.params());
    assertEquals(0.05, defaults.killThreshold());
    assertEquals(60, defaults.countLimit());
    assertEquals(0.5, defaults.weightThreshold());
    NuvikConfig padded = NuvikConfig.builder().predictors("knn_regression", "linear").params(5).build();
    assertArrayEquals(new String[] {"knn_regression", "linear"}, padded.predictors());
    assertArrayEquals(new int[] {5, 1}, padded.params());
    NuvikConfig repeated = NuvikConfig.builder().predictors("linear").params(1, 2, 3).skipRepeats(true).build();
    assertArrayEquals(new String[] {"linear", "linear", "linear"}, repeated.predictors());
    try (Nuvik nuvik = new Nuvik(repeated)) {
      assertEquals("NUVIK library 1.3 [ predictors list: linear, linear, linear ]", nuvik.toString());
      assertEquals("NUVIK library 1.3", nuvik.libraryInfo());
    }
    assertThrows(IllegalArgumentException.class, () -> NuvikConfig.builder().countLimit(-1));
  }

  @Test
  void skipRepeatsDropsARepeatedLaunch() {
    try (Nuvik skipping = new Nuvik(NuvikConfig.builder().skipRepeats(true).build()); Nuvik plain = new Nuvik()) {
      for (String app : new String[] {"a", "a", "b"}) {
        skipping.update(app, 9, 0);
        plain.update(app, 9, 0);
      }
      assertTrue(new String(skipping.save(), StandardCharsets.UTF_8).contains("{\"app\":\"a\",\"popularity\":1}"));
      assertTrue(new String(plain.save(), StandardCharsets.UTF_8).contains("{\"app\":\"a\",\"popularity\":2}"));
    }
  }

  @Test
  void queriesAndTheirSmallRules() {
    try (Nuvik nuvik = trained(); Nuvik byTime = new Nuvik("knn_regression");
        Nuvik byInts = new Nuvik("knn_regression")) {
      assertEquals(List.of("mail", "chat", "news", "maps"), nuvik.next());
      assertEquals(Collections.emptyList(), nuvik.soon());
      assertEquals(Collections.emptyList(), nuvik.kill());
      assertEquals(0.0, nuvik.weight("unknown"));
      assertEquals(-1.0, nuvik.weightDet("unknown"));
      assertEquals(1.0 * 0.9 + 0.5 * 0.1, nuvik.soonWeight(0.5, 1.0));
      assertEquals(0.25, nuvik.soonWeight(0.25));
      assertEquals(0.0, nuvik.soonWeight());
      assertEquals(4, nuvik.countKnownApps());
      assertEquals(3, nuvik.countMetrics());
      assertThrows(UnsupportedOperationException.class, () -> nuvik.next().add("x"));
      // Any int reaches the library; LocalTime is the same call.
      nuvik.update("mail", Integer.MIN_VALUE, Integer.MAX_VALUE);
      for (int i = 0; i < 40; ++i) {
        byTime.update("app" + i % 7, LocalTime.of(i % 24, i * 13 % 60));
        byInts.update("app" + i % 7, i % 24, i * 13 % 60);
      }
      assertEquals(byInts.allWeights(), byTime.allWeights());
    }
  }

  @Test
  void nextAtAndWeightsAtAnswerWhatTheNextUpdateWillAndChangeNothing() {
    String[][] ensembles = {{"stat_counter"}, {"knn_regression", "linear"},
        {"markov_chain3_invalidate", "double_linear"}, {"linear", "markov_chain3_invalidate", "knn_regression"}};
    for (String[] predictors : ensembles) {
      String at = String.join(",", predictors) + ", launch ";
      List<String> probes = new ArrayList<>(List.of("never launched"));
      for (int i = 0; i < 24; ++i) probes.add("app" + i);
      try (Nuvik asked = new Nuvik(predictors); Nuvik plain = new Nuvik(predictors)) {
        Random random = new Random(41);
        int app = 0;
        for (int i = 0; i < 300; ++i) {
          app = random.nextInt(3) == 0 ? random.nextInt(24) : (app * 5 + 1 + random.nextInt(2)) % 24;
          // Every 60th launch carries a time outside the day, which passes on as it is.
          int hour = i % 60 == 59 ? 30 : i / 12 % 24;
          int minute = i % 60 == 59 ? -7 : random.nextInt(60);
          if (i == 100) {
            for (Nuvik nuvik : List.of(asked, plain)) nuvik.setAppsPriority(List.of(Map.entry("app3", 2)));
          }
          if (i == 200) {
            for (Nuvik nuvik : List.of(asked, plain)) nuvik.clear();
          }
          List<String> next = asked.nextAt(hour, minute);
          double[] weights = asked.weightsAt(hour, minute, probes);
          int count = i % 9;
          assertEquals(next.subList(0, Math.min(count, next.size())), asked.nextAt(hour, minute, count), at + i);
          asked.nextAt((hour + 7) % 24, 30);
          asked.weightsAt((hour + 7) % 24, 30, probes);
          asked.update("app" + app, hour, minute);
          plain.update("app" + app, hour, minute);
          assertEquals(next, asked.next(), at + i);
          assertArrayEquals(weights, asked.weights(probes), at + i);
          assertEquals(plain.next(), asked.next(), at + i);
          assertEquals(plain.allWeights(), asked.allWeights(), at + i);
          assertEquals(List.of(plain.countMetrics(), plain.sumMap(), plain.sumRecall()),
              List.of(asked.countMetrics(), asked.sumMap(), asked.sumRecall()), at + i);
          if (i % 50 == 49) assertArrayEquals(plain.save(), asked.save(), at + i);
        }
        LocalTime time = LocalTime.of(21, 45);
        assertEquals(asked.nextAt(21, 45), asked.nextAt(time));
        assertEquals(asked.nextAt(21, 45, 2), asked.nextAt(time, 2));
        assertArrayEquals(asked.weightsAt(21, 45, probes), asked.weightsAt(time, probes));
        assertThrows(IllegalArgumentException.class, () -> asked.nextAt(time, -1));
      }
    }
  }

  @Test
  void namesCrossAsUtf8BothWays() throws Exception {
    String outsideBmp = "\uD83D\uDE00 chat";
    String withNul = "nul\0byte";
    String fullwidth = "\uFF5Ewave";
    try (Nuvik nuvik = new Nuvik()) {
      for (String app : new String[] {outsideBmp, withNul, fullwidth, "\uD800lone", outsideBmp}) {
        nuvik.update(app, 7, 0);
      }
      // Map order is UTF-8 byte order: U+FF5E and U+FFFD before U+1F600, unlike String.compareTo.
      assertEquals(List.of("nul\0byte", "\uFF5Ewave", "\uFFFDlone", outsideBmp),
          List.copyOf(nuvik.allWeights().keySet()));
      byte[] saved = nuvik.save();
      byte[] escaped = "nul\\u0000byte".getBytes(StandardCharsets.UTF_8);
      int at = indexOf(saved, escaped);
      assertTrue(at > 0);
      // Bytes that are not UTF-8 (overlong, surrogate, truncated, 0xFF) come back as one U+FFFD each.
      ByteArrayOutputStream document = new ByteArrayOutputStream();
      document.write(saved, 0, at);
      document.write(new byte[] {'x', (byte) 0xC0, (byte) 0xAF, (byte) 0xED, (byte) 0xA0, (byte) 0x80, (byte) 0xF0,
          (byte) 0x9F, (byte) 0x98, (byte) 0xFF});
      document.write(saved, at + escaped.length, saved.length - at - escaped.length);
      try (Nuvik loaded = new Nuvik()) {
        loaded.load(document.toByteArray());
        loaded.update(withNul, 7, 1);
        assertTrue(loaded.next().contains("x" + "\uFFFD".repeat(9)), loaded.next().toString());
      }
    }
  }

  @Test
  void rejectedDocumentsThrowAndChangeNothing() throws Exception {
    try (Nuvik nuvik = trained("markov_chain3_invalidate", "linear")) {
      byte[] saved = nuvik.save();
      List<String> next = nuvik.next();
      Map<String, Double> weights = nuvik.allWeights();
      String document = new String(saved, StandardCharsets.UTF_8);
      String[] rejected = {"garbage", document.substring(0, document.length() / 2),
          document.replace("\"version\":3", "\"version\":4"), "[".repeat(1001) + "]".repeat(1001),
          "{\"count\":1,\"knownApps\":[\"a\"],\"models\":[{\"name\":\"stat_counter\",\"model\":[5]}],\"version\":3}"};
      for (String text : rejected) {
        NuvikFormatException e = assertThrows(NuvikFormatException.class,
            () -> nuvik.load(text.getBytes(StandardCharsets.UTF_8)), text);
        assertTrue(e.getMessage() != null && !e.getMessage().isEmpty());
        assertArrayEquals(saved, nuvik.save());
        assertEquals(next, nuvik.next());
        assertEquals(weights, nuvik.allWeights());
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
      Executable[] calls = {
          () -> nuvik.update(null, 1, 2), () -> nuvik.update("a", 1, 2, null), () -> nuvik.update("a", null),
          () -> nuvik.weight(null), () -> nuvik.weightDet(null), () -> nuvik.weights(null),
          () -> nuvik.weights(Arrays.asList("a", null)), () -> nuvik.soonWeight((double[]) null),
          () -> nuvik.nextAt(null), () -> nuvik.nextAt(null, 3), () -> nuvik.weightsAt(1, 2, null),
          () -> nuvik.weightsAt(LocalTime.NOON, Arrays.asList("a", null)), () -> nuvik.weightsAt(null, List.of()),
          () -> nuvik.setAppsPriority(null),
          () -> nuvik.setAppsPriority(List.of(new java.util.AbstractMap.SimpleEntry<>(null, 1))),
          () -> nuvik.setAppsPriority(List.of(new java.util.AbstractMap.SimpleEntry<>("a", null))),
          () -> nuvik.load((byte[]) null), () -> nuvik.load((java.io.InputStream) null),
          () -> nuvik.save(null), () -> new Nuvik((String) null), () -> new Nuvik((String[]) null),
          () -> new Nuvik((NuvikConfig) null), () -> NuvikConfig.builder().predictors("a", null)};
      for (Executable call : calls) assertThrows(NullPointerException.class, call);
      assertEquals(List.of("mail", "chat", "news", "maps"), nuvik.next());
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

  private static int indexOf(byte[] haystack, byte[] needle) {
    for (int i = 0; i + needle.length <= haystack.length; ++i) {
      if (Arrays.equals(Arrays.copyOfRange(haystack, i, i + needle.length), needle)) return i;
    }
    return -1;
  }
}
