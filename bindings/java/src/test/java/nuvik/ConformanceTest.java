package nuvik;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

/**
 * Java against the C++ facade and suggestions, driven by nuvik-pin-driver (its path in the system property
 * nuvik.pinDriver).
 */
class ConformanceTest {
  @Test
  void sameStreamGivesTheSameAnswersCallForCall() throws Exception {
    String[] lines = new String(run(new byte[0], "replay"), StandardCharsets.UTF_8).split("\n");
    String[] predictors = Arrays.copyOfRange(lines[0].split(" "), 1, 3);
    byte[] cppDocument = null;
    byte[] cppSuggestions = null;
    int launches = 0;
    int rows = 0;
    try (Nuvik nuvik = new Nuvik(predictors); Suggestions suggestions = new Suggestions()) {
      for (int n = 1; n < lines.length; ++n) {
        String[] f = lines[n].split(" ");
        String at = "line " + (n + 1) + ": ";
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
            assertEquals(names(lines[n].substring("dismissed".length())), suggestions.dismissed(), at);
            break;
          case "row":
            String[] parts = lines[n].split("\\|", -1);
            String[] time = parts[0].split(" ");
            RowRequest request = RowRequest.builder().count(Integer.parseInt(time[3])).stable(time[4].equals("1"))
                .exclude(names(parts[1])).installed(names(parts[2])).fallback(names(parts[3])).build();
            assertEquals(names(parts[4]),
                suggestions.row(nuvik, Integer.parseInt(time[1]), Integer.parseInt(time[2]), request), at);
            ++rows;
            break;
          case "next":
            List<String> expected = new ArrayList<>();
            for (int i = 1; i < f.length; ++i) expected.add(text(f[i]));
            assertEquals(expected, nuvik.next(), at);
            break;
          case "weights":
            List<String> actual = new ArrayList<>();
            nuvik.allWeights().forEach((app, weight) -> actual.add(hex(app) + " " + bits(weight)));
            assertEquals(lines[n].substring("weights".length()).trim(), String.join(" ", actual), at);
            break;
          case "probe":
            String app = text(f[1]);
            assertEquals(f[2] + " " + f[3], bits(nuvik.weight(app)) + " " + bits(nuvik.weightDet(app)), at);
            double[] weights = nuvik.weights(List.of(app, "x"));
            assertEquals(f[2] + " 0000000000000000", bits(weights[0]) + " " + bits(weights[1]), at);
            break;
          case "metrics":
            assertEquals(lines[n], String.join(" ", "metrics", Long.toString(nuvik.countMetrics()),
                bits(nuvik.sumMap()), bits(nuvik.sumRecall()), bits(nuvik.mapMetric()),
                bits(nuvik.recallMetric()), Long.toString(nuvik.countKnownApps())), at);
            break;
          case "document":
            cppDocument = bytes(f[1]);
            assertArrayEquals(cppDocument, nuvik.save());
            break;
          case "suggestions":
            cppSuggestions = bytes(f[1]);
            assertArrayEquals(cppSuggestions, suggestions.save());
            break;
          default:
            throw new AssertionError(at + "unknown record " + f[0]);
        }
      }
    }
    assertEquals(400, launches);
    assertEquals(400, rows);
    // C++ documents load in Java and save again to the same bytes.
    try (Nuvik loaded = new Nuvik(); Suggestions loadedSuggestions = new Suggestions()) {
      loaded.load(cppDocument);
      assertArrayEquals(cppDocument, loaded.save());
      loadedSuggestions.load(cppSuggestions);
      assertArrayEquals(cppSuggestions, loadedSuggestions.save());
    }
  }

  @Test
  void javaDocumentLoadsInCppAndSavesToTheSameBytes() throws Exception {
    String[] predictors = {"stat_counter", "knn_regression", "markov_chain3_invalidate", "linear"};
    try (Nuvik nuvik = new Nuvik(predictors)) {
      String[] apps = {"\uD83D\uDE00 chat", "nul\0byte", "caf\u00e9", "mail", "maps", "\uFF5Ewave"};
      for (int i = 0; i < 300; ++i) nuvik.update(apps[(i * i + i / 7) % apps.length], (i / 3) % 24, (i * 17) % 60);
      byte[] document = nuvik.save();
      String[] command = new String[predictors.length + 1];
      command[0] = "resave";
      System.arraycopy(predictors, 0, command, 1, predictors.length);
      assertArrayEquals(document, run(document, command));
    }
  }

  private static byte[] run(byte[] input, String... arguments) throws IOException, InterruptedException {
    List<String> command = new ArrayList<>();
    command.add(System.getProperty("nuvik.pinDriver"));
    command.addAll(Arrays.asList(arguments));
    Process process = new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.INHERIT).start();
    try (OutputStream in = process.getOutputStream()) {
      in.write(input);
    }
    ByteArrayOutputStream output = new ByteArrayOutputStream();
    try (InputStream out = process.getInputStream()) {
      byte[] buffer = new byte[65536];
      for (int read; (read = out.read(buffer)) != -1; ) output.write(buffer, 0, read);
    }
    assertEquals(0, process.waitFor(), "nuvik-pin-driver " + String.join(" ", arguments));
    return output.toByteArray();
  }

  private static String bits(double value) {
    return String.format("%016x", Double.doubleToRawLongBits(value));
  }

  private static byte[] bytes(String hex) {
    byte[] bytes = new byte[hex.length() / 2];
    for (int i = 0; i < bytes.length; ++i) bytes[i] = (byte) Integer.parseInt(hex.substring(2 * i, 2 * i + 2), 16);
    return bytes;
  }

  private static String text(String hex) {
    return new String(bytes(hex), StandardCharsets.UTF_8);
  }

  // Names written as a space and the hexadecimal of each, so that an empty name shows too.
  private static List<String> names(String spacedHex) {
    List<String> names = new ArrayList<>();
    if (spacedHex.isEmpty()) return names;
    for (String hex : spacedHex.substring(1).split(" ", -1)) names.add(text(hex));
    return names;
  }

  private static String hex(String text) {
    StringBuilder hex = new StringBuilder();
    for (byte b : text.getBytes(StandardCharsets.UTF_8)) hex.append(String.format("%02x", b & 0xFF));
    return hex.toString();
  }
}
