target_link_libraries(${target} PRIVATE kelo_modem)
add_dependencies(${target} kelo_scripted_modem)
