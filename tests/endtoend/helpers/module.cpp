// A library that a test can load.
extern "C" int velmorTestModule() {
    return 1;
}
