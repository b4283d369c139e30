// tmxtool mux: makes a programme from an ADTS file and its side material.
#pragma once

// Runs the command on the arguments that follow "mux"; returns the exit
// status (0 done, 1 failed, 2 bad usage).
int Mux(int argc, char** argv);
