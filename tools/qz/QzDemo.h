// QzDemo.h: the parts of "qz demo" that live in files of their own.
#pragma once

// Writes one value of every type in each stream form to a scratch folder,
// reads each file back, and prints the ascii one. False if any failed.
bool ShowTypedStreams();
