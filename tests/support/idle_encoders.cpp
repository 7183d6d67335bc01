// Preloaded into lumio-tv make: a libavcodec whose encoders take pictures and sound and give nothing, which saves time.
extern "C" int avcodec_send_frame(void *context, const void *frame);
extern "C" int avcodec_receive_packet(void *context, void *packet);

int avcodec_send_frame(void *, const void *) { return 0; }
int avcodec_receive_packet(void *, void *) { return -1; }
