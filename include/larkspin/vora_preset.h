/*
 * larkspin presets: build, read, check and draw a listener's preset.
 *
 * A preset holds, for each of the thirteen controlled bands (0..12), per
 * channel a fixed gain, a fast compressor threshold and ratio, and per band
 * the slow adaptive gain's threshold, factor, delay and time constant. The
 * library takes it as a 196-byte payload (vora_ap_apply_preset_payload);
 * these functions convert between that payload and plain engineering values.
 * Band 13 (above 13.45 kHz) has no controls: it always passes at unity gain.
 *
 * None of these functions allocates, locks, prints or throws; all are pure
 * (no hidden state) and may be called from any thread at any time, also
 * while vora_ap_process runs. Bad arguments get the documented answer.
 */
#ifndef LARKSPIN_VORA_PRESET_H
#define LARKSPIN_VORA_PRESET_H

#include <larkspin/vora_ap.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VORA_PRESET_BAND_COUNT 13   /* controlled bands, 0..12              */
#define VORA_PRESET_CHANNEL_COUNT 2 /* channel 0 (left/mono), 1 (right)     */
#define VORA_BAND_COUNT 14          /* analysis bands; band 13 uncontrolled */

/* Allowed ranges: what the processing accepts intersected with what the
 * payload can carry. Inclusive. */
#define VORA_PRESET_GAIN_DB_MIN (-42.1443f) /* payload: linear factor 1/128 */
#define VORA_PRESET_GAIN_DB_MAX 48.1646f    /* payload: 32767/128           */
#define VORA_PRESET_THRESHOLD_DB_MIN (-256.0f)
#define VORA_PRESET_THRESHOLD_DB_MAX 0.0f
#define VORA_PRESET_TIME_MS_MAX 255.0f /* delay and time constant, whole ms */

/* Values of one channel of one band. */
typedef struct vora_preset_channel {
  float gainDb;          /* fixed band gain, dB, -42.1443..48.1646 (steps: linear factor n/128) */
  float fastThresholdDb; /* fast compressor threshold, dB, -256..0 (steps of 1/128 dB) */
  float fastRatio;       /* output slope above the threshold, 0..1 (steps of 1/255);
                            1 = no compression, 0.5 = 2:1, 0 = hard limit */
} vora_preset_channel;

/* Values of one controlled band. */
typedef struct vora_preset_band {
  vora_preset_channel channels[VORA_PRESET_CHANNEL_COUNT];
  float slowThresholdDb;    /* slow gain threshold, dB, -256..0 (steps of 1/128 dB)  */
  float slowFactor;         /* feedback factor f of the slow gain, 0..1 (steps of
                               1/255); 0 = slow path off. The slow gain is
                               -f * (band level after the fast stage, mean of the
                               channels, minus slowThresholdDb) when positive,
                               smoothed and delayed; that level includes the slow
                               gain itself, so a steady band above the threshold
                               settles at an output slope of 1 / (1 + f) dB per dB
                               (r / (1 + f r) above a fast threshold with ratio r):
                               f = 0.2 gives 0.83, 0.5 gives 0.67, 1 halves it   */
  float slowDelayMs;        /* delay of the slow gain, ms, 0..255 (whole ms)         */
  float slowTimeConstantMs; /* time constant of the slow gain, ms, 0..255 (whole ms) */
} vora_preset_band;

/* A whole preset: bands 0..12 in order. Plain data: copy and compare freely. */
typedef struct vora_preset {
  vora_preset_band bands[VORA_PRESET_BAND_COUNT];
} vora_preset;

/* The fields of a preset, in the order they are checked and reported. */
typedef enum vora_preset_field {
  VORA_PRESET_GAIN_DB = 0,
  VORA_PRESET_FAST_THRESHOLD_DB = 1,
  VORA_PRESET_FAST_RATIO = 2,
  VORA_PRESET_SLOW_THRESHOLD_DB = 3, /* per band: channel is -1 in reports */
  VORA_PRESET_SLOW_FACTOR = 4,
  VORA_PRESET_SLOW_DELAY_MS = 5,
  VORA_PRESET_SLOW_TIME_CONSTANT_MS = 6
} vora_preset_field;
#define VORA_PRESET_FIELD_COUNT 7

typedef enum vora_preset_issue_kind {
  VORA_PRESET_REFUSED = 0, /* outside the allowed range, or not finite: nothing encoded */
  VORA_PRESET_ROUNDED = 1  /* accepted; the payload carries `stored` instead of `value` */
} vora_preset_issue_kind;

/* One problem found in a preset. */
typedef struct vora_preset_issue {
  vora_preset_issue_kind kind;
  int band;    /* 0..12 */
  int channel; /* 0 or 1; -1 for the per-band slow fields */
  vora_preset_field field;
  float value;   /* the value given */
  float minimum; /* allowed range, inclusive */
  float maximum;
  float stored; /* ROUNDED: the value the payload will carry; REFUSED: NaN */
} vora_preset_issue;

/* The field's name in the JSON form of a preset ("gainDb", "fastThresholdDb",
 * "fastRatio", "slowThresholdDb", "slowFactor", "slowDelayMs",
 * "slowTimeConstantMs"), or NULL for an unknown field. Static text. */
LARKSPIN_API const char* vora_preset_field_name(vora_preset_field field);

/* The address of one value in `preset`, so that a host can walk a preset field
 * by field: `band` 0..12; `channel` 0 or 1 for the per-channel fields (gain,
 * fast threshold, fast ratio), ignored by the per-band slow fields (pass -1).
 * NULL for a NULL preset, a band or field out of range, or a per-channel field
 * with a channel other than 0 or 1. */
LARKSPIN_API float* vora_preset_value(vora_preset* preset, int band, int channel, vora_preset_field field);

/* Fills `preset` with the built-in default: +1 dB below 210 Hz, -1 dB from
 * 420 Hz to 1.2 kHz, +4 dB from 1.7 to 4.8 kHz, +3/+2 dB above; 2:1 above
 * -20 dB; slow levelling with factor 0.2 above -40 dB (a band's settled
 * output rises 0.83 dB per dB above it, 0.46 above -20 dB with the 2:1; 20 ms
 * delay, 200 ms time constant). Its values are exactly representable in a
 * payload.
 * False (nothing written) for a NULL pointer. */
LARKSPIN_API bool vora_preset_default(vora_preset* preset);

/* Decodes a 196-byte payload into `preset`. Any 196 bytes decode; values the
 * library would refuse (for example a gain of minus infinity from 196 zero
 * bytes) come back as they are: call vora_preset_check to find them.
 * False (nothing written) when either pointer is NULL. */
LARKSPIN_API bool vora_preset_decode(const unsigned char* payload, vora_preset* preset);

/* Checks every value of `preset` against its allowed range and reports what
 * the payload's quantisation would change. Issues are reported in the order
 * band, channel (0, 1, then -1), field; the first `capacity` of them are
 * written to `issues` (which may be NULL when `capacity` is 0); the total is
 * stored in `*issueCount` when that pointer is not NULL.
 * Returns the number of refused values (0: the preset can be encoded), or -1
 * (nothing written) when `preset` is NULL or `capacity` is negative, or
 * `issues` is NULL with a positive capacity. */
LARKSPIN_API int vora_preset_check(const vora_preset* preset, vora_preset_issue* issues, int capacity, int* issueCount);

/* Checks as vora_preset_check and, when no value is refused, writes the
 * 196-byte payload. Returns the number of refused values: 0 means the
 * payload was written; a positive count means nothing was written; -1 as
 * for vora_preset_check, or when `payload` is NULL. */
LARKSPIN_API int vora_preset_encode(const vora_preset* preset, unsigned char* payload, vora_preset_issue* issues,
                                    int capacity, int* issueCount);

/* Writes one line describing `issue` into `text` (always NUL-terminated when
 * `capacity` > 0), for example
 *   "band 3, channel 0, gainDb = 90 is outside the allowed range -42.1443 to 48.1646"
 *   "band 3, channel 0, fastRatio = 0.299 is stored as 0.298039"
 * Returns the length of the full line (as snprintf does), or -1 when `issue`
 * is NULL, or `text` is NULL with a positive capacity. */
LARKSPIN_API int vora_preset_format_issue(const vora_preset_issue* issue, char* text, size_t capacity);

/* One analysis band at a sample rate. */
typedef struct vora_band_info {
  double lowHz;    /* nominal lower edge, Hz (0 for band 0)                  */
  double centreHz; /* geometric centre, Hz (band 0: 105.1, band 13: lower edge
                      times sqrt 2, capped at the Nyquist frequency)        */
  double highHz;   /* nominal upper edge, Hz (sample rate / 2 for band 13)   */
  bool controlled; /* false for band 13, which always passes at unity gain  */
} vora_band_info;

/* The fourteen analysis bands at `sampleRate` (Hz, 32000..192000, the rates a
 * control accepts). Writes VORA_BAND_COUNT entries to `bands` and returns
 * the FFT size used at that rate (256, 512 or 1024); returns 0 and writes
 * nothing for a NULL pointer or a rate the library does not take (NaN,
 * infinite, below 31999 or above 192001 Hz). */
LARKSPIN_API int vora_preset_band_layout(float sampleRate, vora_band_info* bands);

/* The weight of band `band` (0..13) at `frequencyHz` (0 .. sampleRate / 2),
 * in dB (10 log10 of the magnitude-squared response the engine applies to
 * the spectrum), at `sampleRate`. At the FFT's bin frequencies it equals the
 * engine's own table. Finite over the whole range, 0 Hz and the Nyquist
 * frequency included: deep in a stopband the response is floored at
 * -379.3 dB (the smallest normal float; the engine's table holds nothing
 * larger there). NaN for a band outside 0..13, a frequency outside
 * 0..sampleRate/2 or not finite, or an unsupported rate. */
LARKSPIN_API double vora_preset_band_response_db(float sampleRate, int band, double frequencyHz);

#ifdef __cplusplus
}
#endif

#endif /* LARKSPIN_VORA_PRESET_H */
