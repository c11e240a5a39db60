kelo_unsigned_char_test(${topic})
