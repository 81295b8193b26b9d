// Host GUEST [crash]: a program whose run-time makes exceptions of null pointers and of stack overflows.
public class Host {
    static native int install();

    static native void crash();

    static int[] nowhere = null;

    static int fault() {
        try {
            return nowhere.length;
        } catch (NullPointerException caught) {
            return 1;
        }
    }

    static int overflow(int depth) {
        return overflow(depth + 1) + 1;
    }

    public static void main(String[] arguments) {
        System.load(arguments[0]);
        System.out.println(install());
        int caught = 0;
        for (int i = 0; i != 50000; ++i) caught += fault();
        System.out.println(caught);
        try {
            System.out.println(overflow(0));
        } catch (StackOverflowError failure) {
            System.out.println("overflow");
        }
        if (arguments.length > 1) crash();
    }
}
