// Kotlin use of the Java binding: `use` closes the facade and the suggestions at the end of each block.
import java.time.LocalTime
import nuvik.Nuvik
import nuvik.RowRequest
import nuvik.Suggestions

fun main() {
    Nuvik("markov_chain3_invalidate", "linear").use { nuvik ->
        val day = listOf("alarm" to 7, "mail" to 8, "maps" to 8, "mail" to 12,
                         "chat" to 13, "music" to 18, "chat" to 22)
        for (week in 1..4) for ((app, hour) in day) nuvik.update(app, hour, week * 5)
        println(nuvik)
        println("next: ${nuvik.next().take(3)}")
        println("mail: %.4f, MAP %.4f over %d launches"
            .format(nuvik.weight("mail"), nuvik.mapMetric(), nuvik.countMetrics()))
        check(nuvik.countKnownApps() == 5L)

        // The ranking for now, between two launches; asking changes nothing.
        val noon = LocalTime.of(12, 10)
        println("at 12:10: ${nuvik.nextAt(noon, 3)}")

        // A launcher's row: mail is in the dock, the user dismissed alarm, camera fills a slot the ranking leaves.
        Suggestions().use { suggestions ->
            suggestions.dismiss("alarm")
            val request = RowRequest.builder().count(4).exclude("mail").fallback("camera").stable(true).build()
            val row = suggestions.row(nuvik, noon, request)
            println("row: $row")
            check(row.size == 4 && "mail" !in row && "alarm" !in row && "camera" in row)
        }
    }
}
