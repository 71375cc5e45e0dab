package org.larkspin;

/** Loads the native libraries once, before the first native call. */
final class NativeLibrary {
  private static boolean loaded;

  private NativeLibrary() {}

  static synchronized void load() {
    if (loaded) {
      return;
    }
    // The binding needs liblarkspin.so. Android before 6.0 does not look for
    // a library's dependencies among the app's own, so it is loaded first;
    // elsewhere the binding finds it by itself.
    try {
      System.loadLibrary("larkspin");
    } catch (UnsatisfiedLinkError notOnThePath) {
      // the binding's own search path will find it
    }
    System.loadLibrary("larkspin_jni");
    loaded = true;
  }
}
