// Kotlin use of the Java binding: `use` closes the facade at the end of the block.
import nuvik.Nuvik

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
    }
}
