# SPDX-License-Identifier: MIT
# Says why a test of the Python module does not run.
message("[  SKIPPED ] ${REASON}")
