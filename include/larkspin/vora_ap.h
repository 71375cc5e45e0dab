/*
 * larkspin C interface.
 *
 * Each processor instance ("control") is reached through an opaque handle.
 * Besides the per-handle functions, the library keeps a process-wide registry
 * of all live controls in creation order; the global functions act on every
 * registered control (setters) or answer for the oldest one (getters).
 *
 * Threading: the library takes no lock. One audio thread may run
 * vora_ap_process on any controls while one control thread calls, on the same
 * controls:
 *   vora_ap_set_vorafication_intensity, vora_ap_get_vorafication_intensity,
 *   vora_ap_set_bypassed, vora_ap_get_bypassed,
 *   vora_ap_apply_preset_payload, vora_ap_get_debug_info,
 *   vora_ap_get_band_readout, vora_ap_log_debug_info,
 *   vora_ap_set_message_hook, vora_ap_get_processing_latency,
 *   vora_ap_get_tech_level and vora_ap_get_lib_version.
 * A change takes effect at the start of the next vora_ap_process call, for
 * the whole block; changes arrive in the order they were made; the values a
 * preset brings reach the audio thread together, never mixed with the
 * previous preset's (which values the library takes from a payload: see
 * vora_ap_apply_preset_payload). Changes made between two process calls
 * amount to their last values, exactly as when one thread makes them all (a
 * setting not yet taken by the audio thread is replaced by a newer one, so
 * no setter ever fails for lack of room or waits for the audio thread).
 * Setters answer at once, on the control thread, with the result documented
 * below; getters answer with the setting last made, which the audio thread
 * uses from its next block on. vora_ap_get_debug_info and
 * vora_ap_get_band_readout may be called from any number of threads and
 * always return one whole record of a finished call (of a finished hop).
 * Controls on different threads are independent.
 * Everything else (creating and destroying controls, vora_ap_update, and any
 * two control threads at once) must be serialised by the host and must not
 * run while vora_ap_process runs on a control it touches. vora_ap_process
 * itself is real-time safe: it never allocates, locks, waits or prints.
 *
 * Diagnostics: the library writes a few plain lines, for example
 *   ***** parameter value nan out of range: 0 - 1
 *   ***** for parameter with identifier 8
 * when a value is refused, and the debug record for vora_ap_log_debug_info.
 * By default each goes to standard output with a line break after it;
 * vora_ap_set_message_hook hands them to the host instead.
 *
 * Audio is 32-bit float, non-interleaved, processed in place.
 */
#ifndef LARKSPIN_VORA_AP_H
#define LARKSPIN_VORA_AP_H

#include <stdbool.h>

#if defined(_WIN32)
#define LARKSPIN_API
#else
#define LARKSPIN_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque control handle. The host never dereferences it. */
typedef struct vora_ap_control vora_ap_control;

/* Figures of the last vora_ap_process call on a control; 48 bytes, fixed
 * layout (offsets 0, 1, 8, 16, 24, 32, 40; bytes 2..7 are zero padding). */
typedef struct vora_ap_debug_info {
  bool processingSuccess;            /* result of the last process call      */
  bool processingBypassed;           /* bypass flag at the end of that call  */
  double timeSpentProcessingMs;      /* time spent inside the call, ms       */
  double processingBufferDurationMs; /* duration of the block's audio, ms    */
  double processingSampleRate;       /* sample rate, Hz                      */
  double maximumNumberFrames;        /* maximum frames per block             */
  double processedNumberFrames;      /* frames of the last call              */
} vora_ap_debug_info;

/* Size in bytes of a preset payload. */
#define VORA_AP_PRESET_PAYLOAD_SIZE 196

/* Creates a control for a sample rate in Hz (32000..192000), a maximum block
 * length in frames (>= 1) and a channel layout (non-zero: stereo, zero: mono).
 * A new control inherits the preset payload, intensity and bypass flag of the
 * oldest live control. Returns NULL when the configuration is refused. */
LARKSPIN_API vora_ap_control* vora_ap_create_control(float sampleRate, int maximumFrames, int stereo);
/* Same as vora_ap_create_control. */
LARKSPIN_API vora_ap_control* vora_ap_create(float sampleRate, int maximumFrames, int stereo);

/* Destroys a control. NULL: true. A handle that is not registered (for
 * example one already destroyed): false, nothing is freed. */
LARKSPIN_API bool vora_ap_destroy_control(vora_ap_control* control);
/* Same as vora_ap_destroy_control. */
LARKSPIN_API bool vora_ap_destroy(vora_ap_control* control);

/* Reconfigures a control for a new stream format; the preset, intensity and
 * bypass flag in force are kept. False for a NULL handle or a refused format. */
LARKSPIN_API bool vora_ap_update(vora_ap_control* control, float sampleRate, int maximumFrames, int stereo);

/* Processes `frames` frames of the control's channels in place. `channels`
 * holds one buffer per channel (1 or 2). False for a NULL handle, a control
 * that is not set up, or more frames than the maximum; the buffers are then
 * left untouched. */
LARKSPIN_API bool vora_ap_process(vora_ap_control* control, float** channels, int frames);

/* Processing latency in frames (0.0 for a NULL handle). */
LARKSPIN_API float vora_ap_get_processing_latency(vora_ap_control* control);

/* Figures of the control's last process call (all zero for a NULL handle). */
LARKSPIN_API vora_ap_debug_info vora_ap_get_debug_info(vora_ap_control* control);

/* Number of analysis bands in a band read-out: 0..12 carry the preset's
 * controls, 13 (above 13.45 kHz) always has a gain of 0 dB. */
#define VORA_AP_BAND_COUNT 14

/* What the dynamics did in the control's last hop (the processing's step of
 * a quarter FFT, 64 to 256 frames): per band and channel the band level in
 * dB (20 log10 of the band-weighted magnitude sum the gain computer sees;
 * a steady sine of amplitude A well inside a band reads about 20 log10 A) and the
 * band gain in dB (slow gain, compression and fixed gain together). Each
 * array receives VORA_AP_BAND_COUNT * 2 floats, index band * 2 + channel;
 * a mono control leaves channel 1 at its start values. Before the first
 * processed hop, and while the wet path is skipped (intensity 0 or bypass
 * faded out), levels read -758.6 dB (silence) and gains 0 dB, or the last
 * values. Meant for meters on a UI thread: it may be called from any thread,
 * also while vora_ap_process runs, and always gives the values of one whole
 * hop, the last one of the last block that finished (the audio thread
 * publishes them after each block without waiting; a reader that overlaps
 * that publication reads again). Allocation-free and lock-free. False
 * (nothing written) for a NULL handle or pointer, or whenever
 * vora_ap_process refuses every block: a control never set up or whose last
 * vora_ap_update was refused. */
LARKSPIN_API bool vora_ap_get_band_readout(vora_ap_control* control, float* levelsDb, float* gainsDb);

/* Prints the control's debug figures, one line each, where the library's
 * lines go (standard output unless a message hook is set). */
LARKSPIN_API void vora_ap_log_debug_info(vora_ap_control* control);

/* Receives one diagnostic line: NUL-terminated, without a line break, valid
 * only during the call. `context` is the pointer given with the hook. It
 * must not throw, and must not call back into the library. */
typedef void (*vora_ap_message_hook)(void* context, const char* line);

/* Routes the diagnostic lines of every control, present and created later,
 * to `hook`, with exactly the text and number of lines that would have been
 * printed; NULL restores standard output. Call it on the control thread
 * (or serialised with it). A line arrives synchronously on the thread that
 * made the call producing it, during that call: vora_ap_create_control,
 * vora_ap_create, vora_ap_update, vora_ap_apply_preset_payload,
 * vora_ap_set_vorafication_intensity, vora_ap_set_bypassed or
 * vora_ap_log_debug_info; never vora_ap_process, the getters or the
 * vora_preset_* functions, which print nothing. Hosts whose controls live on
 * several control threads get lines from each of them. */
LARKSPIN_API void vora_ap_set_message_hook(vora_ap_message_hook hook, void* context);

/* Version of this C interface layer: "3.4.0". */
LARKSPIN_API const char* vora_ap_get_wrapper_version(void);

/* Applies a 196-byte preset payload to every control. Returns the result for
 * the newest control; false when there is none. The payload is not judged
 * whole: each value the processing refuses is skipped (with two diagnostic
 * lines) and the others are applied, and the result is still true; a
 * payload equal to the one a control stores (196 zero bytes on a fresh
 * control) counts as applied without being applied. Check a payload with
 * vora_preset_decode and vora_preset_check first and apply it only when no
 * value is refused. */
LARKSPIN_API bool vora_ap_apply_preset_payload(unsigned char* payload);

/* Sets the bypass flag of every control (result of the newest control). */
LARKSPIN_API bool vora_ap_set_bypassed(bool bypassed);
/* Bypass flag of the oldest control; false when there is none. */
LARKSPIN_API bool vora_ap_get_bypassed(void);

/* Sets the processing intensity (0..1, clamped) of every control. */
LARKSPIN_API bool vora_ap_set_vorafication_intensity(float intensity);
/* Intensity of the oldest control; 0.0 when there is none. */
LARKSPIN_API float vora_ap_get_vorafication_intensity(void);

/* Technology level of the processing core (4); 0 when there is no control. */
LARKSPIN_API int vora_ap_get_tech_level(void);
/* Version text of the processing core; NULL when there is no control. */
LARKSPIN_API const char* vora_ap_get_lib_version(void);
/* What this build of the library computes with, for logs and bug reports:
 * the FFT backend and the instruction set its transform runs on, e.g.
 * "own FFT, SSE2", "own FFT, NEON", "own FFT, plain C++", "KissFFT, plain C".
 * (The core's version text above stays as hosts know it, whatever the build.)
 * Static text, never NULL; needs no control; any thread. */
LARKSPIN_API const char* vora_ap_get_build_info(void);

#ifdef __cplusplus
}
#endif

#endif /* LARKSPIN_VORA_AP_H */
