package org.larkspin;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;
import java.util.HashSet;
import java.util.Set;

/**
 * Runs an action once an object has become unreachable, or earlier when asked: native memory of objects that
 * were never closed is freed after all. {@code java.lang.ref.Cleaner} does it where the platform has it
 * (Java 9, Android 13); older Android gets the same from a phantom reference and a daemon thread of its own.
 */
final class Reclaimer {
  /** Runs the action now, if it has not run yet; later calls do nothing. */
  interface Cleanable {
    void clean();
  }

  private static final boolean HAVE_CLEANER = haveCleaner();

  private Reclaimer() {}

  /** Registers {@code action}, which must not refer to {@code owner} (or it would never become unreachable). */
  static Cleanable register(Object owner, Runnable action) {
    return HAVE_CLEANER ? SystemCleaner.register(owner, action) : phantom(owner, action);
  }

  private static boolean haveCleaner() {
    try {
      Class.forName("java.lang.ref.Cleaner");
      return true;
    } catch (ClassNotFoundException | LinkageError absent) {
      return false;
    }
  }

  /** Loaded only where the class exists. */
  private static final class SystemCleaner {
    private static final java.lang.ref.Cleaner CLEANER = java.lang.ref.Cleaner.create();

    static Cleanable register(Object owner, Runnable action) {
      return CLEANER.register(owner, action)::clean;
    }
  }

  /** The fallback; package-private for its test. */
  static Cleanable phantom(Object owner, Runnable action) {
    return new Phantom(owner, action);
  }

  private static final class Phantom extends PhantomReference<Object> implements Cleanable {
    private static final ReferenceQueue<Object> QUEUE = new ReferenceQueue<>();
    // Keeps the references themselves reachable until they have run.
    private static final Set<Phantom> PENDING = new HashSet<>();

    static {
      Thread thread = new Thread(Phantom::drain, "larkspin-reclaimer");
      thread.setDaemon(true);
      thread.start();
    }

    private Runnable action;

    Phantom(Object owner, Runnable action) {
      super(owner, QUEUE);
      this.action = action;
      synchronized (PENDING) {
        PENDING.add(this);
      }
    }

    @Override
    public void clean() {
      Runnable once;
      synchronized (PENDING) {
        once = action;
        action = null;
        PENDING.remove(this);
      }
      if (once != null) {
        once.run();
      }
    }

    private static void drain() {
      while (true) {
        try {
          ((Phantom) QUEUE.remove()).clean();
        } catch (InterruptedException ignored) {
          // keep draining: the thread lives as long as the process
        } catch (RuntimeException failed) {
          // one failing action must not stop the others
        }
      }
    }
  }
}
