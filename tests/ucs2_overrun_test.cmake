# The test defines two conversions, which only the archive leaves to it.
set_property(TARGET ${target} PROPERTY KELO_LINKS_ARCHIVE ON)
