// QzTestPlugin.cpp: a module for the dynamic library tests, loaded at run
// time: one exported function with an answer no other library gives.

extern "C" __attribute__((visibility("default"))) int QzTestPluginAnswer(int value);

int QzTestPluginAnswer(int value)
{
    return value * 3 + 1;
}
