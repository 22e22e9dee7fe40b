# Fails unless the page shows the whole snippet, letter for letter, as a block of C++.

file(READ "${snippet}" code)
file(READ "${page}" text)
string(FIND "${text}" "```cpp\n${code}```" position)
if(position EQUAL -1)
    message(FATAL_ERROR "${page} does not show ${snippet} as it is.")
endif()
