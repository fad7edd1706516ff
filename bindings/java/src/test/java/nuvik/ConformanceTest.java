package nuvik;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

/**
 * Java against the C++ facade and suggestions, driven by nuvik-binding-trace (its path in the system property
 * nuvik.trace): each command of its stream is repeated here, and each answer it printed must be what Java
 * answers, to the bit.
 */
class ConformanceTest {
  @Test
  void sameStreamGivesTheSameAnswersCallForCall() throws Exception {
    Process driver = new ProcessBuilder(System.getProperty("nuvik.trace"))
        .redirectError(ProcessBuilder.Redirect.INHERIT).start();
    driver.getOutputStream().close();
    String[] lines = new String(driver.getInputStream().readAllBytes(), StandardCharsets.UTF_8).split("\n");
    assertEquals(0, driver.waitFor());
    byte[] cppDocument = null;
    byte[] cppSuggestions = null;
    int launches = 0;
    int rows = 0;
    try (Nuvik nuvik = new Nuvik(lines[0].split(" ")[1].split(","));
        Suggestions suggestions = new Suggestions()) {
      for (int n = 1; n < lines.length; ++n) {
        String line = lines[n];
        String[] f = line.split(" ");
        // Commands answer nothing; an answer is rebuilt from Java's calls.
        String actual = line;
        switch (f[0]) {
          case "launch":
            nuvik.update(text(f[1]), Integer.parseInt(f[2]), Integer.parseInt(f[3]));
            ++launches;
            break;
          case "priority":
            List<Map.Entry<String, Integer>> priorities = new ArrayList<>();
            for (int i = 1; i < f.length; i += 2) priorities.add(Map.entry(text(f[i]), Integer.parseInt(f[i + 1])));
            nuvik.setAppsPriority(priorities);
            break;
          case "reset":
            nuvik.resetPriority();
            break;
          case "clear":
            nuvik.clear();
            break;
          case "clearmetrics":
            nuvik.clearMetrics();
            break;
          case "dismiss":
            suggestions.dismiss(text(f[1]));
            break;
          case "restore":
            suggestions.restore(text(f[1]));
            break;
          case "cleardismissed":
            suggestions.clearDismissed();
            break;
          case "dismissed":
            actual = "dismissed" + spaced(suggestions.dismissed());
            break;
          case "row":
            String[] parts = line.split("\\|", -1);
            RowRequest request = RowRequest.builder().count(Integer.parseInt(f[3])).stable(f[4].startsWith("1"))
                .exclude(names(parts[1])).installed(names(parts[2])).fallback(names(parts[3])).build();
            List<String> row = suggestions.row(nuvik, Integer.parseInt(f[1]), Integer.parseInt(f[2]), request);
            actual = line.substring(0, line.lastIndexOf('|') + 1) + spaced(row);
            ++rows;
            break;
          case "next":
            actual = "next" + spaced(nuvik.next());
            break;
          case "weights":
            StringBuilder weights = new StringBuilder("weights");
            nuvik.allWeights().forEach((app, weight) -> weights.append(' ').append(hex(app)).append(' ')
                .append(bits(weight)));
            actual = weights.toString();
            break;
          case "probe":
            String app = text(f[1]);
            actual = String.join(" ", "probe", f[1], bits(nuvik.weight(app)), bits(nuvik.weightDet(app)));
            assertArrayEquals(new double[] {nuvik.weight(app), 0.0}, nuvik.weights(List.of(app, "x")));
            break;
          case "metrics":
            actual = String.join(" ", "metrics", Long.toString(nuvik.countMetrics()), bits(nuvik.sumMap()),
                bits(nuvik.sumRecall()), bits(nuvik.mapMetric()), bits(nuvik.recallMetric()),
                Long.toString(nuvik.countKnownApps()));
            break;
          case "document":
            cppDocument = bytes(f[1]);
            actual = "document " + hex(nuvik.save());
            break;
          case "suggestions":
            cppSuggestions = bytes(f[1]);
            actual = "suggestions " + hex(suggestions.save());
            break;
          default:
            actual = "an unknown record";
        }
        assertEquals(line, actual, "line " + (n + 1));
      }
    }
    assertEquals(List.of(400, 400), List.of(launches, rows));
    // C++ documents load in Java and save again to the same bytes.
    try (Nuvik loaded = new Nuvik(); Suggestions loadedSuggestions = new Suggestions()) {
      loaded.load(cppDocument);
      assertArrayEquals(cppDocument, loaded.save());
      loadedSuggestions.load(cppSuggestions);
      assertArrayEquals(cppSuggestions, loadedSuggestions.save());
    }
  }

  private static String bits(double value) {
    return String.format("%016x", Double.doubleToRawLongBits(value));
  }

  private static byte[] bytes(String hex) {
    byte[] bytes = new byte[hex.length() / 2];
    for (int i = 0; i < bytes.length; ++i) bytes[i] = (byte) Integer.parseInt(hex.substring(2 * i, 2 * i + 2), 16);
    return bytes;
  }

  private static String hex(byte[] bytes) {
    StringBuilder hex = new StringBuilder();
    for (byte b : bytes) hex.append(String.format("%02x", b & 0xFF));
    return hex.toString();
  }

  private static String text(String hex) {
    return new String(bytes(hex), StandardCharsets.UTF_8);
  }

  private static String hex(String text) {
    return hex(text.getBytes(StandardCharsets.UTF_8));
  }

  // Names written as a space and the hexadecimal of each, so that an empty name shows too.
  private static List<String> names(String spacedHex) {
    List<String> names = new ArrayList<>();
    if (spacedHex.isEmpty()) return names;
    for (String hex : spacedHex.substring(1).split(" ", -1)) names.add(text(hex));
    return names;
  }

  private static String spaced(List<String> names) {
    StringBuilder spaced = new StringBuilder();
    for (String name : names) spaced.append(' ').append(hex(name));
    return spaced.toString();
  }
}
