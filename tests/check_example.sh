#!/bin/bash
echo "outside readers: not yet"
