target_link_libraries(${target} PRIVATE kelo_power_cut)
