/* The shared object's own translation unit: its contents come from the
 * layer archives. This records the build's identity in the binary. */
const char larkspin_build_identity[] __attribute__((used)) = "larkspin " LARKSPIN_VERSION_TEXT;
