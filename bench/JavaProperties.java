import java.io.BufferedReader;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Properties;
import java.util.Random;

/**
 * java.util.Properties on the file that the benchmarks of properties files use, after warm-up.
 * Prints what a Google Benchmark program prints with --benchmark_format=json, as far as the report
 * reads it.
 */
public final class JavaProperties {
    private static final int KEYS_PER_STANZA = 1000;
    private static final long WARM_UP = 500_000_000L; // ns; until the compiler has had its turns
    private static final int REPETITIONS = 3;
    private static final List<String> results = new ArrayList<>();
    private static long kept; // what is read is used, so that reading is not optimised away

    private interface Work {
        void run() throws IOException;
    }

    private static String key(int i) {
        return "stanza" + i / KEYS_PER_STANZA + ".setting" + i % KEYS_PER_STANZA;
    }

    private static Path sample(int count) throws IOException {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < count; ++i) {
            text.append(key(i)).append(" = value ").append(i).append('\n');
        }
        Path path = Files.createTempFile(Path.of("/dev/shm"), "java_bench.", ".properties");
        return Files.writeString(path, text);
    }

    private static Properties load(Path path) throws IOException {
        Properties properties = new Properties();
        try (BufferedReader reader = Files.newBufferedReader(path)) {
            properties.load(reader);
        }
        return properties;
    }

    /** Runs {@code work}, which handles {@code count} keys, and notes its times. */
    private static void measure(String row, int count, Work work) throws IOException {
        for (long end = System.nanoTime() + WARM_UP; System.nanoTime() < end;) {
            work.run();
        }
        int times = Math.max(1, 1_000_000 / count);
        for (int i = 0; i < REPETITIONS; ++i) {
            System.gc();
            long start = System.nanoTime();
            for (int round = 0; round < times; ++round) {
                work.run();
            }
            double time = (double) (System.nanoTime() - start) / times;
            results.add(String.format(
                "{\"name\": \"%s/java/%d\", \"run_type\": \"iteration\", \"real_time\": %.1f,"
                + " \"time_unit\": \"ns\", \"per\": %d}", row, count, time, count));
        }
    }

    private static void measureAll(int count) throws IOException {
        Path path = sample(count);
        try {
            List<String> keys = new ArrayList<>();
            for (int i = 0; i < count; ++i) {
                keys.add(key(i));
            }
            Collections.shuffle(keys, new Random(1));
            measure("properties file, load", count, () -> kept += load(path).size());
            Properties properties = load(path);
            measure("properties file, get a key", count, () -> {
                for (String key : keys) {
                    kept += properties.getProperty(key).length();
                }
            });
            measure("properties file, set a key", count, () -> {
                for (String key : keys) {
                    properties.setProperty(key, "some value");
                }
            });
        } finally {
            Files.delete(path);
        }
    }

    public static void main(String[] arguments) throws IOException {
        for (int count : new int[] {10_000, 100_000, 1_000_000}) {
            measureAll(count);
        }
        System.out.println("{\"benchmarks\": [\n" + String.join(",\n", results) + "\n]}");
        if (kept == 0) {
            throw new IllegalStateException("nothing was read");
        }
    }
}
