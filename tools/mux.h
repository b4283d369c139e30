// tmxtool mux: makes a programme from an ADTS file and its side material.
#pragma once

// Runs the command on the arguments that follow "mux"; returns the exit
// status (0 done, 1 failed, 2 bad usage).
int Mux(int argc, char** argv);

// The same with --legacy=8k|16k: a speech-coded programme in the older
// container from a mono WAV file.
int MuxLegacy(int argc, char** argv);
