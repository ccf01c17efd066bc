// Not quite a plug-in: it says what it serves and builds nothing.

extern "C" __attribute__((visibility("default"))) int sensorType() {
    return 43;
}
