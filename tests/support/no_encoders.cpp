// Preloaded into lumio-tv make: a libavcodec without encoders.
extern "C" const void *avcodec_find_encoder_by_name(const char *name);

const void *avcodec_find_encoder_by_name(const char *) { return nullptr; }
