// Every fixed text the solver prints, in one place. They are part of the program's interface
// (scripts and operators read them), so they are spelled exactly as users have always seen them.
#pragma once

namespace riffle::messages {

inline constexpr const char* no_input_file = "Input File not specified";
inline constexpr const char* open_error = "*** Open error of CGNS file ***";

inline constexpr const char* error_parameters = "ERROR : Failed to read the parameters ...";
inline constexpr const char* error_allocate = "ERROR : Failed to allocate the arrays ...";
inline constexpr const char* error_restart = "ERROR : Failed to read the saved results ...";
// Why a restart file is refused (RestartError): a line number and one of these; the console
// shows error_restart alone.
inline constexpr const char* restart_unreadable = "cannot read the file ";
inline constexpr const char* restart_ends_early = "the file ends inside a record";
inline constexpr const char* restart_not_number = "not a number: ";
inline constexpr const char* restart_not_finite = "not a finite value: ";
inline constexpr const char* restart_bad_count = "a point count the file cannot hold: ";
inline constexpr const char* restart_left_over = "text after the last record (a larger grid?)";
// An output file (restart or Tecplot) that cannot be written; the file name and the system's
// reason follow on the same line.
inline constexpr const char* error_write = "ERROR : Cannot write the file ";
// The environment chose a smoother order that does not exist (RIFFLE_SMOOTHER).
inline constexpr const char* error_smoother =
    "ERROR : RIFFLE_SMOOTHER must be rows or colours, not ";
// A velocity, the pressure or the time step that became NaN or infinite; where follows.
inline constexpr const char* error_nonfinite = "ERROR : The flow is no longer finite";

// The bed point search. Operators' scripts match these lines as they stand: the misspellings
// are kept on purpose.
inline constexpr const char* failed_u = "immrsing u could not find the minimum point";
inline constexpr const char* failed_v = "immrsing v could not find the minimum point";
inline constexpr const char* failed_w = "immersing w could not find the minimum point";
inline constexpr const char* failed_visc = "immrsing visc could not find the minimum point";
inline constexpr const char* not_converged = "Warning : The immersed boundary is not converged yet";

// Console report after every step: 21-character labels ending in "= ".
inline constexpr const char* label_step = "Step Number        = ";
inline constexpr const char* label_dt = "Time Step          = ";
inline constexpr const char* label_time = "Time               = ";
inline constexpr const char* label_npois = "Number of Poisson  = ";
inline constexpr const char* label_divmax = "Maximum divergence = ";
inline constexpr const char* label_divtotal = "Total divergence   = ";
inline constexpr const char* report_rule =
    "--------------------------------------------------------";

} // namespace riffle::messages
