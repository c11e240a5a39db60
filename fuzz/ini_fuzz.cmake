# SPDX-License-Identifier: MIT
target_sources(${topic}_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/ini_model.cpp)
