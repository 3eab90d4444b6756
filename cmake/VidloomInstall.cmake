# Filled in with the install rules and the package config that a consumer finds.
