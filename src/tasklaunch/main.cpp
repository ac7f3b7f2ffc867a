// Taken from the library by a program that has no main of its own.
#include <zvrtask/zvrtask.h>

int main(int argument_count, char** arguments) {
  zvr_run_program(argument_count, arguments);
}
