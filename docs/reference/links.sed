# Turns the links of the guides, made for reading in the tree, into links between the reference's pages.
s#\]\((\.\./)?include/general/([a-z_]+\.h(pp)?)\)#](@ref \2)#g
s#\]\((docs/)?([a-z_-]+\.md)(\#[^)]*)?\)#](@ref docs/\2)#g
s#\]\((\.\./)?([A-Z]+\.md)\)#](@ref \2)#g
# What the reference does not hold stays as text.
s#\[([^]]*)\]\((\.\./)?(base|samples|script|bench|fuzz|tests)/[^)]*\)#\1#g
s#\[([^]]*)\]\((\.\./)?LICENSE\)#\1#g
# The reference has a table of contents beside each page instead.
s#\[([^]]*)\]\(\#[^)]*\)#\1#g
