import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.PrintWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Properties;
import java.util.Random;
import java.util.TreeMap;

/**
 * Java's side of the comparison; java.sh says what the sets of pairs are.
 *
 *   Pairs make SET PAIRS FILE    generates the pairs of a set, writes them to PAIRS, and with
 *                                Properties.store to FILE
 *   Pairs check PAIRS FILE       loads FILE and compares
 *
 * PAIRS has a line "KEY VALUE" for each, in four hexadecimal digits a UTF-16 unit; an empty value is
 * "-".
 */
public class Pairs {
    private static final String SIMPLE_KEY = keyCharacters("=:#!\\");

    private final String keyCharacters;
    private final String valueCharacters;
    private final boolean leadingBlanks;
    private final TreeMap<String, String> pairs = new TreeMap<>();

    private Pairs(String set) {
        boolean isFromJava = set.equals("from-java");
        keyCharacters = isFromJava ? keyCharacters("#!") + " " : SIMPLE_KEY;
        valueCharacters = valueCharacters(switch (set) {
            case "shared" -> "=#!\t\n\r\f\u007f";
            case "from-java" -> "=#!\t\n\r\f";
            case "to-java" -> "\n\r\u007f";
            default -> throw new IllegalArgumentException(set);
        });
        leadingBlanks = isFromJava;
        generate();
    }

    private static String keyCharacters(String except) {
        StringBuilder all = new StringBuilder();
        for (char c = '!'; c <= '~'; ++c) if (except.indexOf(c) < 0) all.append(c);
        return all.toString();
    }

    private static String valueCharacters(String except) {
        StringBuilder all = new StringBuilder();
        for (int c = 0; c <= 0xffff; ++c) if (except.indexOf(c) < 0) all.append((char) c);
        return all.toString();
    }

    private void generate() {
        for (char c : keyCharacters.toCharArray()) pairs.put("k" + c + "k", "v");
        for (int at = 0; at < valueCharacters.length(); at += 32) {
            int end = Math.min(at + 32, valueCharacters.length());
            put(String.format("row.%04x", at), "a" + valueCharacters.substring(at, end) + "b");
        }
        for (int i = 0; i < 300; ++i)
            put("alone." + i, valueCharacters.substring(i, i + 1));
        put("empty", "");
        put("beyond", "a\ud83d\ude00b\udbff\udfff");
        Random random = new Random(1);
        for (int i = 0; i < 1000; ++i)
            put("k" + text(random, keyCharacters, 20), text(random, valueCharacters, 60));
    }

    private void put(String key, String value) {
        boolean isBlankFirst = !value.isEmpty() && " \t\f\u000b".indexOf(value.charAt(0)) >= 0;
        pairs.put(key, isBlankFirst && !leadingBlanks ? "x" + value : value);
    }

    private static String text(Random random, String characters, int limit) {
        StringBuilder made = new StringBuilder();
        for (int length = random.nextInt(limit); length > 0; --length) {
            // Every other one from ASCII, where the characters are that mean something.
            int range = random.nextBoolean() ? Math.min(120, characters.length())
                                             : characters.length();
            made.append(characters.charAt(random.nextInt(range)));
        }
        return made.toString();
    }

    private static String hex(String text) {
        if (text.isEmpty()) return "-";
        StringBuilder digits = new StringBuilder();
        for (char c : text.toCharArray()) digits.append(String.format("%04x", (int) c));
        return digits.toString();
    }

    private void write(Path list, String file) throws IOException {
        try (PrintWriter writer = new PrintWriter(Files.newBufferedWriter(list))) {
            pairs.forEach((key, value) -> writer.println(hex(key) + " " + hex(value)));
        }
        Properties properties = new Properties();
        properties.putAll(pairs);
        try (OutputStream stream = new FileOutputStream(file)) {
            properties.store(stream, "generated");
        }
    }

    private static int check(Path list, String file) throws IOException {
        Properties properties = new Properties();
        try (InputStream stream = new FileInputStream(file)) {
            properties.load(stream);
        }
        TreeMap<String, String> loaded = new TreeMap<>();
        properties.forEach((key, value) -> loaded.put(hex((String) key), hex((String) value)));
        int wrong = 0;
        int count = 0;
        for (String line : Files.readAllLines(list)) {
            String[] pair = line.split(" ");
            ++count;
            if (pair[1].equals(loaded.get(pair[0]))) continue;
            System.out.println("key " + pair[0] + " is " + loaded.get(pair[0]) + ", not " + pair[1]);
            ++wrong;
        }
        if (loaded.size() != count) System.out.println(loaded.size() + " pairs, not " + count);
        return wrong == 0 && loaded.size() == count ? 0 : 1;
    }

    public static void main(String[] arguments) throws IOException {
        if (arguments[0].equals("make")) {
            new Pairs(arguments[1]).write(Path.of(arguments[2]), arguments[3]);
        } else {
            System.exit(check(Path.of(arguments[1]), arguments[2]));
        }
    }
}
